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
        try:
            return self._open()
        except FileNotFoundError:  # a rotation is under way
            return False

    def _open(self):
        inode, offset = self._resume
        paths = self._generations()
        for path in paths:
            if os.stat(path).st_ino == inode:
                self._file = open(path, "rb")
                self._file.seek(offset)
                return True
        if inode is None:
            self._file = open(self._path, "rb")
            return True
        if not paths:
            return False
        # To read some of it once more does no harm.
        logging.warning("%s: what was read last is gone, reading from %s on", self._path, paths[0])
        self._file = open(paths[0], "rb")
        return True

    def _open_successor(self):
        """The next file, once snmptrapd writes to it; None until then."""
        this = os.fstat(self._file.fileno())
        try:
            if os.stat(self._path).st_ino == this.st_ino:
                return None
            paths = self._generations()
            states = [os.stat(path) for path in paths]
            inodes = [state.st_ino for state in states]
            if this.st_ino in inodes:
                place = inodes.index(this.st_ino) + 1
            else:  # it has been compressed
                place = next(i for i, state in enumerate(states) if state.st_mtime_ns >= this.st_mtime_ns)
            file = open(paths[place], "rb")
        except (FileNotFoundError, StopIteration):  # a rotation is under way
            return None
        status = os.fstat(file.fileno())
        if status.st_ino == inodes[place] and status.st_size:
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
