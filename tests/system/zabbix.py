"""Debian's Zabbix: server, frontend for its API, and a PostgreSQL of its own. Nothing of it is installed.

PostgreSQL does not run as root; for root it runs as nobody.
"""

import gzip
import json
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import urllib.request

from agents import Program, free_port, wait_until
from debian import libraries, unpacked

PACKAGES = ["zabbix-server-pgsql", "zabbix-frontend-php", "php8.2-cli",
            *(f"php8.2-{name}" for name in ("pgsql", "bcmath", "mbstring", "gd", "xml", "curl", "ldap"))]
EXTENSIONS = ["pgsql", "bcmath", "mbstring", "gd", "xml", "dom", "xmlreader", "xmlwriter", "simplexml", "ctype",
              "gettext", "sockets", "curl", "ldap", "fileinfo", "iconv"]
NOBODY = 65534


class Database(Program):
    """PostgreSQL, with Zabbix's tables in it. It listens on a socket in its own directory."""

    def __init__(self, directory, schema):
        server = unpacked("postgresql-15")
        [programs] = [*server.glob("usr/lib/postgresql/15/bin")] or [pathlib.Path("/usr/lib/postgresql/15/bin")]
        self.socket = pathlib.Path(tempfile.mkdtemp(prefix="tavo-database-"))
        variables = {**os.environ, **libraries(server), "PGUSER": "zabbix", "PGHOST": str(self.socket)}
        user = []
        if os.geteuid() == 0:
            os.chown(self.socket, NOBODY, NOBODY)
            user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
        subprocess.run([*user, programs / "initdb", "--no-sync", "--username=zabbix", "--auth=trust", "--encoding=UTF8",
                        self.socket / "data"], check=True, capture_output=True, env=variables, cwd=self.socket)
        super().__init__(directory, "postgresql", [
            *user, programs / "postgres", "-D", self.socket / "data", "-c", f"unix_socket_directories={self.socket}",
            "-c", "listen_addresses=", "-c", "fsync=off", "-c", "synchronous_commit=off"], **libraries(server))
        self.wait_for_log("ready to accept connections")
        subprocess.run([programs / "createdb", "zabbix"], check=True, env=variables)
        for file in ("schema.sql.gz", "images.sql.gz", "data.sql.gz"):
            subprocess.run([programs / "psql", "-q", "-v", "ON_ERROR_STOP=1", "-o", "/dev/null", "zabbix"], check=True,
                           capture_output=True, env=variables, input=gzip.decompress((schema / file).read_bytes()))

    def stop(self):
        status = super().stop()
        shutil.rmtree(self.socket, ignore_errors=True)
        return status


class ZabbixServer(Program):
    def __init__(self, directory, place, database):
        [program] = [*place.glob("usr/sbin/zabbix_server")] or [shutil.which("zabbix_server", path="/usr/sbin")]
        (directory / "zabbix.conf").write_text(f"""\
LogType=console
DBHost={database.socket}
DBName=zabbix
DBUser=zabbix
ListenIP=127.0.0.1
ListenPort={free_port(socket.SOCK_STREAM)}
SocketDir={directory}
PidFile={directory}/zabbix.pid
StartPollers=4
StartPollersUnreachable=1
StartDiscoverers=0
StartHTTPPollers=0
CacheUpdateFrequency=1
Timeout=30
AllowRoot=1
""")
        super().__init__(directory, "zabbix", [program, "-f", "-c", directory / "zabbix.conf"], **libraries(place))
        self.wait_for_log("server #0 started")


class Frontend(Program):
    """The frontend, served by PHP itself. call() is a call of its API."""

    def __init__(self, directory, place, database):
        files = directory / "frontend"
        shutil.copytree(place / "usr/share/zabbix", files, symlinks=False, ignore_dangling_symlinks=True)
        configuration = files / "zabbix.conf.php"
        knows = files / "include/classes/core/CConfigFile.php"
        knows.write_text(knows.read_text().replace("/etc/zabbix/zabbix.conf.php", str(configuration)))
        configuration.write_text(f"""<?php
$DB['TYPE'] = 'POSTGRESQL';
$DB['SERVER'] = '{database.socket}';
$DB['PORT'] = '0';
$DB['DATABASE'] = 'zabbix';
$DB['USER'] = 'zabbix';
$DB['PASSWORD'] = '';
$DB['SCHEMA'] = '';
$DB['ENCRYPTION'] = false;
$DB['DOUBLE_IEEE754'] = true;
""")
        [extensions] = place.glob("usr/lib/php/2*")
        self._address = f"127.0.0.1:{free_port(socket.SOCK_STREAM)}"
        self._token = None
        super().__init__(directory, "frontend", [
            place / "usr/bin/php8.2", "-n", "-d", f"extension_dir={extensions}",
            *(word for name in EXTENSIONS for word in ("-d", f"extension={name}")),
            "-d", "memory_limit=512M", "-S", self._address, "-t", files], **libraries(place))
        self.wait_for_log("Development Server .* started")
        self._token = self.call("user.login", username="Admin", password="zabbix")

    def call(self, method, **parameters):
        return self.call_with(method, parameters)

    def call_with(self, method, parameters):
        """The same for the methods that take a list."""
        body = json.dumps({"jsonrpc": "2.0", "method": method, "params": parameters, "id": 1, "auth": self._token})
        request = urllib.request.Request(f"http://{self._address}/api_jsonrpc.php", body.encode(),
                                         {"Content-Type": "application/json-rpc"})
        with urllib.request.urlopen(request, timeout=120) as response:
            answer = json.load(response)
        assert "error" not in answer, (method, answer["error"])
        return answer["result"]
