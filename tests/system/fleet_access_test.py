"""How hosts are let in by the servers of a fleet, and what they are told when they are not: encryption with certificates on
both sides, and credentials as an operator of servers gives them."""
import base64
import json
import os
import subprocess
import sys
import time

import fleet
import lab

sys.path.insert(0, str(lab.SOURCE / "tests" / "agent" / "sinks"))
import receivers  # noqa: E402


def openssl(*words, **options):
    return subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True, **options).stdout


class Authority(receivers.Authority):
    """Of certificates whose keys this host's users may not read, as is asked for."""

    def issue(self, name):
        certificate, key = super().issue(name)
        key.chmod(0o600)
        return certificate, key

    def issue_for(self, host):
        """For a server that is not at home here."""
        (self._folder / "names").write_text(f"subjectAltName=DNS:{host}\n")
        return self.issue(host)

    def issue_expired(self):
        """One that was good for a day, years ago."""
        folder = self._folder / "past"
        folder.mkdir()
        certificate, key = folder / "past.pem", folder / "past.key"
        (folder / "index.txt").touch()
        (folder / "ca.conf").write_text(f"""
[ca]
default_ca = here
[here]
database = {folder}/index.txt
new_certs_dir = {folder}
rand_serial = yes
default_md = sha256
policy = any
[any]
commonName = supplied
""")
        openssl("req", *self.NEW_KEY, "-subj", "/CN=past", "-keyout", key, "-out", folder / "past.csr")
        openssl("ca", "-batch", "-notext", "-config", folder / "ca.conf", "-cert", self.ca, "-keyfile",
                self._folder / "ca.key", "-extfile", self._folder / "names", "-in", folder / "past.csr",
                "-startdate", "20200101000000Z", "-enddate", "20200102000000Z", "-out", certificate)
        key.chmod(0o600)
        return certificate, key


class Access(lab.LabTest):
    """A host that tries to connect in one way or another."""

    def setUp(self):
        super().setUp()
        self.ours = Authority(self.lab.folder / "ours")
        self.others = Authority(self.lab.folder / "others")
        self.client = self.by(self.ours.ca, self.ours.issue("client"))

    @staticmethod
    def by(ca, pair):
        return {"ca_file": ca, "cert": pair[0], "key": pair[1]}

    def encrypting(self, name, certificate, key):
        """Servers that show this certificate and want one of their clients."""
        servers = fleet.Servers(self.lab, name=name, extra=f"""
tls {{ cert_file: "{certificate}", key_file: "{key}", ca_file: "{self.ours.ca}", verify: true, timeout: 10 }}""")
        for server in servers.all:
            server.scheme = "tls"
        servers.start()
        return servers

    def is_let_in(self, servers, **options):
        said = self.connect(servers, **options)
        self.assertEqual((0, ""), (said.returncode, said.stderr))

    def is_told(self, servers, *parts, **options):
        """The command fails, and says the servers, the cause, and the next step."""
        said = self.connect(servers, **options)
        self.assertEqual(1, said.returncode, said.stdout)
        for part in (servers.urls, *parts):
            self.assertIn(part, said.stderr)
        self.assertNotIn(".c:", said.stderr)  # no places in a library's source

    def connect(self, servers, **options):
        words = [f"{name.replace('_', '-')}={value}" for name, value in options.items()]
        self.lab.command("collect", f"servers={servers.urls}", "replicas=1", "timeout=5", *words)
        return self.lab.run("fleet", "status")

    def secret(self, name, text):
        path = self.lab.folder / name
        path.touch(0o600)
        path.write_text(text)
        return path


class Encrypted(Access):
    def test_alerts_go_encrypted_between_those_that_show_their_certificates(self):
        servers = self.encrypting("n", self.ours.certificate, self.ours.key)
        centre = fleet.Centre(servers, **self.client)
        host = fleet.Host(0, servers, **self.client)
        for one in (centre, host):
            self.addCleanup(one.lab.close)
            one.daemon.start()
        host.report(5)
        host.daemon.scan()
        self.lab.wait_until("they are collected", lambda: centre.collected() == 5)
        self.assertEqual(host.ledger(), centre.ledger(host))
        # Without ca-file=, the certificates count that this system trusts.
        os.environ["SSL_CERT_FILE"] = str(self.ours.ca)
        self.addCleanup(os.environ.pop, "SSL_CERT_FILE")
        self.is_let_in(servers, cert=self.client["cert"], key=self.client["key"])

    def test_a_server_that_cannot_show_who_it_is_is_told_nothing(self):
        servers = self.encrypting("n", self.ours.certificate, self.ours.key)
        signed = "see whether ca-file= is of the authority"
        self.is_told(servers, "unable to get local issuer certificate", signed, cert=self.client["cert"],
                     key=self.client["key"])
        self.is_told(servers, "unable to get local issuer certificate", signed,
                     **{**self.client, "ca_file": self.others.ca})
        expired = self.encrypting("expired", *self.ours.issue_expired())
        self.is_told(expired, "certificate has expired", "still good", **self.client)
        elsewhere = self.encrypting("elsewhere", *self.ours.issue_for("elsewhere.example"))
        self.is_told(elsewhere, "IP address mismatch", "for this name", **self.client)

    def test_a_server_that_does_not_encrypt_is_not_told_a_password(self):
        heard = self.lab.folder / "heard"
        servers = fleet.Servers(self.lab, extra=f'debug: true, trace: true, logfile: "{heard}"')
        servers.start()
        who = {"user": "me", "password_file": self.secret("password", "the word")}
        # It would let in anybody.
        self.is_let_in(servers, **who)
        self.assertIn("CONNECT", heard.read_text())
        before = heard.read_text().count("CONNECT {")
        self.is_told(servers, "have all servers encrypt", ca_file=self.ours.ca, **who)
        servers.all[0].scheme = "tls"
        self.is_told(servers, "have all servers encrypt", **who)
        self.assertEqual(before, heard.read_text().count("CONNECT {"))

    def test_a_client_that_cannot_show_who_it_is_is_told_what_to_look_for(self):
        servers = self.encrypting("n", self.ours.certificate, self.ours.key)
        wants = ("the server has closed the connection", "another certificate of this host, which cert= and key= name")
        self.is_told(servers, *wants, ca_file=self.ours.ca)
        self.is_told(servers, *wants, **self.by(self.ours.ca, self.others.issue("client")))
        self.is_told(servers, *wants, **self.by(self.ours.ca, self.ours.issue_expired()))

    def test_a_file_that_is_no_certificate_or_no_key_of_it_is_named(self):
        servers = self.encrypting("n", self.ours.certificate, self.ours.key)
        junk = self.secret("junk", "junk\n")
        for options in ({**self.client, "ca_file": junk}, {**self.client, "cert": junk}, {**self.client, "key": junk}):
            said = self.connect(servers, **options).stderr
            self.assertIn("junk", said)
            self.assertIn("see whether the files of certificates and credentials are sound", said)
        said = self.connect(servers, **{**self.client, "key": self.others.issue("client")[1]}).stderr
        self.assertIn("key values mismatch", said)

    def test_a_daemon_that_is_not_let_in_says_so_and_sends_all_once_it_is(self):
        servers = self.encrypting("n", self.ours.certificate, self.ours.key)
        centre = fleet.Centre(servers, **self.client)
        host = fleet.Host(0, servers, **self.by(self.ours.ca, self.ours.issue_expired()))
        for one in (centre, host):
            self.addCleanup(one.lab.close)
            one.daemon.start()
        host.report(3)
        host.daemon.scan()
        self.lab.wait_until("it says so", lambda: "cert= and key= name" in (host.sink()["last_error"] or ""))
        host.lab.command("sink", "set", "fleet", f"cert={self.client['cert']}", f"key={self.client['key']}")
        self.lab.wait_until("they are collected", lambda: centre.collected() == 3)


# ---- credentials ----

KINDS = {"operator": 14 << 3, "account": 0, "user": 20 << 3}  # what the name of a key begins with
SEED = 18 << 3


def shown(data):
    """As the servers write keys: with a checksum, in letters and digits."""
    checksum = 0
    for byte in data:
        checksum ^= byte << 8
        for _ in range(8):
            checksum = (checksum << 1 ^ (0x1021 if checksum & 0x8000 else 0)) & 0xffff
    return base64.b32encode(data + checksum.to_bytes(2, "little")).decode().rstrip("=")


def plain(data):
    return base64.urlsafe_b64encode(data).decode().rstrip("=")


class Key:
    """The key of an operator, an account or a user, and what it signs for others."""

    def __init__(self, folder, kind, name):
        self.kind = kind
        self.name = name
        self._path = folder / f"{kind}-{name}.pem"
        openssl("genpkey", "-algorithm", "ed25519", "-out", self._path)
        self._secret = openssl("pkey", "-in", self._path, "-outform", "DER")[-32:]
        self.public = shown(bytes([KINDS[kind]]) + openssl("pkey", "-in", self._path, "-pubout", "-outform", "DER")[-32:])

    def seed(self):
        prefix = KINDS[self.kind]
        return shown(bytes([SEED | prefix >> 5, (prefix & 31) << 3]) + self._secret)

    def token(self, key, claims, **more):
        """What this one says of another key."""
        head = plain(json.dumps({"typ": "JWT", "alg": "ed25519-nkey"}).encode())
        body = plain(json.dumps({"jti": key.public, "iat": int(time.time()) - 60, "iss": self.public, "name": key.name,
                                 "sub": key.public, "nats": {**claims, "type": key.kind, "version": 2}, **more}).encode())
        signed = self._path.with_suffix(".signed")
        signed.write_text(f"{head}.{body}")
        signature = openssl("pkeyutl", "-sign", "-rawin", "-inkey", self._path, "-in", signed)
        return f"{head}.{body}.{plain(signature)}"


ALL = {name: -1 for name in ("subs", "data", "payload")}
OF_ACCOUNT = {**ALL, "imports": -1, "exports": -1, "wildcards": True, "conn": -1, "leaf": -1, "mem_storage": -1,
              "disk_storage": -1, "streams": -1, "consumer": -1}
OF_SYSTEM = {name: value for name, value in OF_ACCOUNT.items()
             if name not in ("mem_storage", "disk_storage", "streams", "consumer")}


class Operator:
    """Gives credentials to the hosts of one account, as its servers know by its own key alone."""

    def __init__(self, folder):
        folder.mkdir()
        self._folder = folder
        self._operator = Key(folder, "operator", "fleet")
        self._account = Key(folder, "account", "FLEET")
        self._system = Key(folder, "account", "SYS")

    def configuration(self):
        accounts = [(self._account, OF_ACCOUNT), (self._system, OF_SYSTEM)]
        known = "\n".join(f"  {key.public}: {self._operator.token(key, {'limits': limits})}" for key, limits in accounts)
        itself = self._operator.token(self._operator, {"system_account": self._system.public})
        return f"operator: {itself}\nsystem_account: {self._system.public}\nresolver: MEMORY\nresolver_preload {{\n{known}\n}}"

    def give(self, name, publish=(), signed_by=None, **more):
        """A file of credentials for one of that name; `publish`: all that it may say."""
        user = Key(self._folder, "user", name)
        allowed = {"pub": {"allow": list(publish)}} if publish else {}
        token = (signed_by or self._account).token(user, {**ALL, **allowed}, **more)
        path = self._folder / f"{name}.creds"
        path.touch(0o600)
        path.write_text(f"-----BEGIN NATS USER JWT-----\n{token}\n------END NATS USER JWT------\n\n"
                        f"-----BEGIN USER NKEY SEED-----\n{user.seed()}\n------END USER NKEY SEED------\n")
        return {"credentials_file": path}


class Credentials(Access):
    def setUp(self):
        super().setUp()
        self.operator = Operator(self.lab.folder / "operator")
        self.servers = fleet.Servers(self.lab, extra=self.operator.configuration())
        self.servers.start()

    def test_hosts_with_credentials_send_their_alerts_and_one_whose_rights_are_for_another_one_says_so(self):
        centre = fleet.Centre(self.servers, **self.operator.give("collector"))
        self.addCleanup(centre.lab.close)
        centre.daemon.start()
        hosts = []
        for number in range(2):
            hosts.append(fleet.Host(number, self.servers, credentials_file=self.secret("later", "")))
            self.addCleanup(hosts[-1].lab.close)
        # Both have the rights of the first one.
        uuid = hosts[0].uuid()
        rights = [f"syslogmon.alerts.{uuid}", "$JS.API.STREAM.INFO.syslogmon-alerts",
                  f"$JS.API.DIRECT.GET.syslogmon-alerts.syslogmon.alerts.{uuid}"]
        for host in hosts:
            given = self.operator.give(f"host{host.number}", rights)["credentials_file"]
            host.lab.command("sink", "set", "fleet", f"credentials-file={given}")
            host.daemon.start()
            host.report(5)
            host.daemon.scan()
        self.lab.wait_until("they are collected", lambda: centre.collected() == 5)
        self.assertEqual(hosts[0].ledger(), centre.ledger(hosts[0]))
        self.lab.wait_until("the other one says so", lambda: hosts[1].sink()["last_error"])
        said = hosts[1].sink()["last_error"]
        self.assertIn("the servers do not allow it: ", said)
        self.assertIn(f"syslogmon.alerts.{hosts[1].uuid()}", said)
        self.assertIn("cannot go on", hosts[1].lab.run("sink", "test", "fleet").stderr)
        self.assertEqual(5, self.servers.messages())

    def test_who_has_none_or_wrong_or_old_ones_is_told_so(self):
        self.is_let_in(self.servers, **self.operator.give("one"))
        wrong = ("Authorization Violation", "the credentials, the user with its password, or the token")
        self.is_told(self.servers, *wrong)
        self.is_told(self.servers, *wrong, user="me", password_file=self.secret("password", "the word"))
        self.is_told(self.servers, *wrong, token_file=self.secret("token", "the token"))
        self.is_told(self.servers, *wrong, **self.operator.give("old", exp=int(time.time()) - 10))
        stranger = Key(self.lab.folder, "account", "STRANGER")
        self.is_told(self.servers, *wrong, **self.operator.give("strange", signed_by=stranger))
        junk = self.secret("junk", "junk\n")
        self.is_told(self.servers, str(junk), "see whether that is a file of credentials", credentials_file=junk)


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
