"""Receivers of alerts for the system tests: real ones, and small ones where a test must see inside.

Each can be stopped and started again on the same port, as a receiver that is down for a while.
"""
import base64
import http.server
import json
import os
import shutil
import socket
import socketserver
import ssl
import subprocess
import threading
import time
import urllib.request
from pathlib import Path

import lab

ALERTMANAGER = ("prometheus-alertmanager",)
SNMPTRAPD = ("snmptrapd", "snmpd", "libnetsnmptrapd40", "libwrap0", "libsnmp40", "libsnmp-base")
SMILINT = ("smitools", "libsmi2ldbl")

MIBS = Path(__file__).parent / "mibs"
OUR_MIB = lab.SOURCE / "packaging" / "SYSLOGMON-MIB.txt"


def free_port(kind=socket.SOCK_STREAM):
    with socket.socket(socket.AF_INET, kind) as trial:
        trial.bind(("127.0.0.1", 0))
        return trial.getsockname()[1]


class Authority:
    """A certificate authority of the test's own, with one certificate for localhost."""
    NEW_KEY = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes")

    def __init__(self, folder):
        folder.mkdir()
        self.ca = folder / "ca.pem"
        self._folder = folder
        self._openssl("req", "-x509", *self.NEW_KEY, "-days", "2", "-subj", f"/CN=test {folder.name}",
                      "-keyout", folder / "ca.key", "-out", self.ca)
        (folder / "names").write_text("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
        self.certificate, self.key = self.issue("localhost")

    def _openssl(self, *words):
        subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True)

    def issue(self, name):
        """Makes a certificate and its key for this name, which is at home on this host."""
        certificate, key, request = (self._folder / f"{name}.{end}" for end in ("pem", "key", "csr"))
        self._openssl("req", *self.NEW_KEY, "-subj", f"/CN={name}", "-keyout", key, "-out", request)
        self._openssl("x509", "-req", "-in", request, "-CA", self.ca, "-CAkey", self._folder / "ca.key",
                      "-days", "2", "-CAcreateserial", "-extfile", self._folder / "names", "-out", certificate)
        return certificate, key

    def context(self, clients=None):
        """Of a server; with another authority, only for clients that have a certificate of it."""
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.certificate, self.key)
        if clients:
            context.verify_mode = ssl.CERT_REQUIRED
            context.load_verify_locations(clients.ca)
        return context


class _Server(socketserver.ThreadingMixIn, socketserver.TCPServer):
    """Closes its connections when it stops, as a process that ends does."""
    allow_reuse_address = True
    daemon_threads = True

    def __init__(self, port, handler, context):
        self.context = context
        self.connections = set()
        self.refusals = []  # why there was no connection
        super().__init__(("127.0.0.1", port), handler)

    def process_request_thread(self, request, client_address):
        self.connections.add(request)
        try:
            if self.context:
                request = self.context.wrap_socket(request, server_side=True)
                self.connections.add(request)
            super().process_request_thread(request, client_address)
        except OSError as error:
            self.refusals.append(str(error))

    def handle_error(self, request, client_address):
        pass  # the daemon was killed, or this server is stopping

    def hang_up(self):
        for connection in list(self.connections):
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            connection.close()


class Service:
    """A receiver inside the test."""

    def __init__(self, the_lab, context=None):
        self.port = free_port()
        self._context = context
        self._server = None
        the_lab.on_close(self.stop)

    def handler(self):
        raise NotImplementedError

    def start(self):
        self._server = _Server(self.port, self.handler(), self._context)
        threading.Thread(target=self._server.serve_forever, args=(0.01,), daemon=True).start()

    def refused(self, why):
        """Has it turned somebody away for this reason?"""
        return any(why in one for one in self._server.refusals)

    def stop(self):
        if self._server:
            self._server.shutdown()
            self._server.server_close()
            self._server.hang_up()
            self._server = None


class HttpsReceiver(Service):
    """Keeps the requests that it has answered with 200."""

    def __init__(self, the_lab, authority, delay=0.0, clients=None):
        super().__init__(the_lab, authority.context(clients))
        self.requests = []  # (headers, JSON)
        self.clients = []  # the names in the certificates of those who have asked
        self.delay = delay
        self.url = f"https://localhost:{self.port}/alerts"

    def handler(self):
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                time.sleep(service.delay)
                for field in (self.connection.getpeercert() or {}).get("subject", ()):
                    service.clients.append(dict(field)["commonName"])
                service.requests.append((dict(self.headers), json.loads(body)))
                self.send_response(200)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *_):
                pass

        return Handler

    def alerts(self):
        return [alert for _, alert in self.requests]


class Proxy(Service):
    """Connects whoever asks to where they want, and keeps what they have asked for."""

    def __init__(self, the_lab):
        super().__init__(the_lab)
        self.asked = []  # "CONNECT localhost:443"
        self.url = f"http://127.0.0.1:{self.port}"

    def handler(self):
        service = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                asked = self.rfile.readline().decode()
                while self.rfile.readline() not in (b"\r\n", b""):
                    pass
                service.asked.append(" ".join(asked.split(" ")[:2]))
                host, port = asked.split(" ")[1].rsplit(":", 1)
                with socket.create_connection((host, int(port))) as there:
                    self.wfile.write(b"HTTP/1.1 200 Connection established\r\n\r\n")
                    back = threading.Thread(target=self.carry, args=(there, self.connection), daemon=True)
                    back.start()
                    self.carry(self.connection, there)
                    back.join()

            def carry(self, source, target):
                try:
                    while data := source.recv(65536):
                        target.sendall(data)
                    target.shutdown(socket.SHUT_WR)
                except OSError:
                    pass  # one of them has hung up

        return Handler


class MailServer(Service):
    """A small SMTP server, which wants a user and a password when it has some. Keeps the mails."""

    def __init__(self, the_lab, authority=None, login=None):
        super().__init__(the_lab, authority.context() if authority else None)
        self.mails = []  # (sender, receivers, text)
        self.login = login

    def handler(self):
        service = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                self.say("220 test")
                sender, receivers, known = "", [], service.login is None
                for line in self.rfile:
                    words = line.decode().strip()
                    verb = words.split(" ")[0].upper()
                    if verb == "EHLO":
                        self.say("250-test\r\n250-8BITMIME\r\n250 AUTH PLAIN")
                    elif verb == "AUTH":
                        known = self.log_in(words)
                        self.say("235 welcome" if known else "535 wrong password")
                    elif verb == "MAIL" and not known:
                        self.say("530 log in first")
                    elif verb == "MAIL":
                        sender, receivers = words.split("<")[1].split(">")[0], []
                        self.say("250 ok")
                    elif verb == "RCPT":
                        receivers.append(words.split("<")[1].split(">")[0])
                        self.say("250 ok")
                    elif verb == "DATA":
                        self.say("354 go on")
                        service.mails.append((sender, receivers, self.read_mail()))
                        self.say("250 taken")
                    elif verb == "QUIT":
                        self.say("221 bye")
                        return
                    else:
                        self.say("250 ok")

            def say(self, text):
                self.wfile.write((text + "\r\n").encode())

            def log_in(self, words):
                parts = words.split(" ")
                if len(parts) < 3:
                    self.say("334 ")
                    parts.append(self.rfile.readline().decode().strip())
                return base64.b64decode(parts[2]).decode().split("\0")[1:] == list(service.login)

            def read_mail(self):
                lines = []
                while (line := self.rfile.readline().decode()) not in (".\r\n", ""):
                    lines.append(line[1:] if line.startswith("..") else line)
                return "".join(lines)

        return Handler


def _show_templates():
    """Lays the unpacked package over /usr/share, where Alertmanager wants its templates. Only this
    test's mount namespace sees it."""
    if not Path("/usr/share/prometheus/alertmanager/default.tmpl").exists():
        layers = f"lowerdir={lab.tools() / 'usr' / 'share'}:/usr/share"
        subprocess.run(["mount", "-t", "overlay", "-o", layers, "overlay", "/usr/share"], check=True)


class Alertmanager:
    """One peer of a cluster of real ones."""

    def __init__(self, the_lab, name, peers=()):
        self._lab = the_lab
        self.port = free_port()
        self.cluster_port = free_port()
        self.url = f"http://127.0.0.1:{self.port}"
        self._folder = the_lab.folder / name
        self._name = name
        self._folder.mkdir()
        configuration = self._folder / "alertmanager.yml"
        configuration.write_text("route:\n  receiver: none\nreceivers:\n  - name: none\n")
        self._argv = [lab.tools() / "usr" / "bin" / "prometheus-alertmanager",
                      f"--config.file={configuration}", f"--storage.path={self._folder}",
                      f"--web.listen-address=127.0.0.1:{self.port}",
                      f"--cluster.listen-address=127.0.0.1:{self.cluster_port}",
                      *(f"--cluster.peer=127.0.0.1:{peer.cluster_port}" for peer in peers)]

    def start(self):
        _show_templates()
        self.child = self._lab.spawn(self._name, self._argv)
        self._lab.wait_until(f"{self._name} is ready", self._is_ready)

    def _is_ready(self):
        try:
            with urllib.request.urlopen(self.url + "/-/ready", timeout=1) as reply:
                return reply.status == 200
        except OSError:
            return False

    def kill(self):
        self.child.kill()

    def alerts(self):
        """The active alerts, by the label source."""
        with urllib.request.urlopen(self.url + "/api/v2/alerts", timeout=5) as reply:
            return {alert["labels"]["source"]: alert for alert in json.load(reply)}


class Snmptrapd:
    """A real snmptrapd, which knows our MIB and writes one line for each notification."""

    def __init__(self, the_lab, configuration):
        self._lab = the_lab
        self.port = free_port(socket.SOCK_DGRAM)
        self.receiver = f"127.0.0.1:{self.port}"
        self._folder = the_lab.folder / "snmptrapd"
        self._folder.mkdir()
        self._configuration = self._folder / "snmptrapd.conf"
        self._configuration.write_text("disableAuthorization no\n" + configuration)
        self._log = self._folder / "log"
        self._mibs = self._folder / "mibs"
        shutil.copytree(MIBS, self._mibs)
        shutil.copy(OUR_MIB, self._mibs)

    def start(self):
        before = self.said().count("NET-SNMP version")
        argv = [lab.tool("snmptrapd"), "-f", "-n", "-A", "-C", "-c", self._configuration, "-Lf",
                self._log, "-M", self._mibs, "-m", "SYSLOGMON-MIB", "-OQ", f"udp:{self.receiver}"]
        self.child = self._lab.spawn("snmptrapd", argv, SNMP_PERSISTENT_DIR=str(self._folder / "state"),
                                     LD_LIBRARY_PATH=str(lab.tool_libraries()))
        self._lab.wait_until("snmptrapd has started",
                             lambda: self.said().count("NET-SNMP version") > before)

    def stop(self):
        self.child.signal(15)
        self.child.wait()

    def said(self):
        return self._log.read_text(errors="replace") if self._log.exists() else ""

    def values(self, name):
        """All values of an object that were received, in order."""
        values = []
        for line in self.said().splitlines():
            for part in line.split("\t"):
                object_name, _, value = part.partition(" = ")
                if object_name == f"SYSLOGMON-MIB::{name}.0":
                    values.append(value.strip('"'))
        return values


def smilint(path):
    """What smilint says about a MIB, at its strictest."""
    environment = {**os.environ, "SMIPATH": str(MIBS), "LD_LIBRARY_PATH": str(lab.tool_libraries())}
    done = subprocess.run([lab.tools() / "usr" / "bin" / "smilint", "-l", "6", "-s", path],
                          capture_output=True, text=True, env=environment, timeout=lab.PATIENCE)
    return f"{done.returncode}: {done.stdout}{done.stderr}"
