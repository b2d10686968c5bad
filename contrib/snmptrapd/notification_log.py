"""Follows the file that snmptrapd writes."""

import glob
import logging
import os


class Log:
    """The file that snmptrapd writes, and those to which it was renamed."""

    def __init__(self, path, inode=None, offset=0):
        """`inode` and `offset` are where an earlier run stopped reading."""
        self._path = path
        self._file = None
        self._rest = b""
        self._resume = inode, offset

    @property
    def position(self):
        """What the next run needs: the file's inode, and how far the complete lines of it have been read."""
        if self._file is None:
            return self._resume
        return os.fstat(self._file.fileno()).st_ino, self._file.tell() - len(self._rest)

    def _generations(self):
        """The file and its earlier ones, the oldest first."""
        paths = [path for path in glob.glob(glob.escape(str(self._path)) + "*") if not path.endswith((".gz", ".xz"))]
        return sorted(paths, key=lambda path: (path == str(self._path), os.stat(path).st_mtime))

    def open(self):
        """Finds the place where reading begins. False: there is no file yet."""
        inode, offset = self._resume
        for path in self._generations():
            if os.stat(path).st_ino == inode:
                self._file = open(path, "rb")
                self._file.seek(offset)
                return True
        if not self._path.exists():
            return False
        if inode is not None:
            logging.warning("%s: the part that was read last is gone; notifications may be missing", self._path)
        self._file = open(self._path, "rb")
        return True

    def _open_successor(self):
        """The next file, once snmptrapd writes to it; None until then."""
        inode = os.fstat(self._file.fileno()).st_ino
        try:
            if os.stat(self._path).st_ino == inode:
                return None
            paths = self._generations()
            inodes = [os.stat(path).st_ino for path in paths]
            following = inodes.index(inode) + 1 if inode in inodes else -1
            file = open(paths[following], "rb")
        except FileNotFoundError:  # a rotation is under way
            return None
        status = os.fstat(file.fileno())
        if status.st_ino == inodes[following] and status.st_size:
            return file
        file.close()
        return None

    def lines(self):
        """Each line that is complete by now."""
        if self._file is None and not self.open():
            return
        following = None
        while True:
            octets = self._file.read(1 << 20)
            if octets:
                *complete, self._rest = (self._rest + octets).split(b"\n")
                yield from (line.decode(errors="replace") for line in complete)
            elif following:  # the last one was read after its successor had begun
                self._file.close()
                self._file, self._rest, following = following, b"", None
            elif os.fstat(self._file.fileno()).st_size < self._file.tell():
                logging.warning("%s was cut; notifications may be missing", self._path)
                self._file.seek(0)
                self._rest = b""
            elif not (following := self._open_successor()):
                return
