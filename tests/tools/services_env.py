#!/usr/bin/env python3
"""Real counterparts for the support services' tests, then the test itself.

Usage: services_env.py WORKDIR -- COMMAND...

Writes zip archives with Python's zipfile (ordinary ones and hostile ones:
entries that climb out, absolute names, a link, a bomb, a header that lies
about its size, a damaged entry after a good one), starts on 127.0.0.1 an
HTTP server, an HTTPS server with a self-signed certificate (made with the
openssl tool) and an SMTP sink that files each mail it receives, and runs
COMMAND with their addresses in the environment:

  VANTRY_HTTP, VANTRY_HTTPS   http://127.0.0.1:PORT (VANTRY_HTTPS unset when
                              no certificate could be made)
  VANTRY_SMTP                 127.0.0.1:PORT; mails land in VANTRY_MAIL_DIR
  VANTRY_SMTP_TLS             a sink that offers STARTTLS with the
                              self-signed certificate (unset with no HTTPS)
  VANTRY_ZIPS                 the folder of archives
  VANTRY_REGISTRY             a settings file of the test's own
  TMP                         an empty folder of the test's own
  VANTRY_CHECK                where the test leaves what other programs
                              check afterwards: ours.zip (read by zipfile),
                              signed.txt (text, signature, public key:
                              verified as Ed25519 by the openssl tool)

Exits 77 (skipped) with a message when the servers cannot be started.
"""
import http.server
import os
import shutil
import socket
import socketserver
import ssl
import struct
import subprocess
import sys
import threading
import zipfile

FILE_BODY = b"duct schedule\r\nline two\n" * 40


def write_zips(folder):
    os.makedirs(folder, exist_ok=True)
    z = os.path.join
    with zipfile.ZipFile(z(folder, "good.zip"), "w", zipfile.ZIP_DEFLATED) as f:
        f.writestr("std/", b"")
        f.writestr("std/layers.csv", b"name,colour\nDUCT,1\n")
        f.writestr("std/sub/r\u00e9seau.txt", "r\u00e9seau".encode())
        f.writestr("readme.txt", b"hello")
    with zipfile.ZipFile(z(folder, "slip.zip"), "w") as f:
        f.writestr("ok.txt", b"fine")
        f.writestr("../slipped.txt", b"escaped")
    with zipfile.ZipFile(z(folder, "absolute.zip"), "w") as f:
        f.writestr("ok.txt", b"fine")
        info = zipfile.ZipInfo("x")
        info.filename = "/tmp/vantry_absolute.txt"  # zipfile would strip the slash
        f.writestr(info, b"escaped")
    with zipfile.ZipFile(z(folder, "drive.zip"), "w") as f:
        f.writestr("C:\\evil.txt", b"escaped")
    with zipfile.ZipFile(z(folder, "link.zip"), "w") as f:
        f.writestr("ok.txt", b"fine")
        info = zipfile.ZipInfo("passwd")
        info.create_system = 3
        info.external_attr = 0o120777 << 16
        f.writestr(info, b"/etc/passwd")
    # Three megabytes of zeros: a few kilobytes packed, beyond a 1 MB limit.
    with zipfile.ZipFile(z(folder, "bomb.zip"), "w", zipfile.ZIP_DEFLATED) as f:
        f.writestr("small.txt", b"first")
        f.writestr("zeros.bin", bytes(3 << 20))
    # The same zeros with both headers claiming 100 bytes.
    with zipfile.ZipFile(z(folder, "liar.zip"), "w", zipfile.ZIP_DEFLATED) as f:
        f.writestr("zeros.bin", bytes(3 << 20))
    data = bytearray(open(z(folder, "liar.zip"), "rb").read())
    local = data.find(b"PK\x03\x04")
    central = data.find(b"PK\x01\x02")
    struct.pack_into("<I", data, local + 22, 100)
    struct.pack_into("<I", data, central + 24, 100)
    open(z(folder, "liar.zip"), "wb").write(bytes(data))
    # A good entry, then one whose stored bytes were damaged (CRC mismatch).
    with zipfile.ZipFile(z(folder, "damaged.zip"), "w", zipfile.ZIP_STORED) as f:
        f.writestr("first.txt", b"complete")
        f.writestr("second.txt", b"X" * 64)
    data = bytearray(open(z(folder, "damaged.zip"), "rb").read())
    at = data.find(b"X" * 64)
    data[at + 10] = ord("Y")
    open(z(folder, "damaged.zip"), "wb").write(bytes(data))
    open(z(folder, "notazip.zip"), "wb").write(b"this is not an archive\n")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def send_body(self, body, status=200):
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def redirect(self, to):
        self.send_response(302)
        self.send_header("Location", to)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_GET(self):
        p = self.path
        if p == "/file.txt":
            self.send_body(FILE_BODY)
        elif p == "/moved":
            self.redirect("/file.txt")
        elif p == "/loop":
            self.redirect("/loop")
        elif p == "/to-file":
            self.redirect("file:///etc/passwd")
        elif p == "/to-ftp":
            self.redirect("ftp://127.0.0.1/x")
        elif p == "/big":
            self.send_body(bytes(2 << 20))
        elif p == "/big-chunked":
            # No length announced: only counting the body finds it too big.
            self.send_response(200)
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            chunk = bytes(64 << 10)
            try:
                for _ in range(32):
                    self.wfile.write(b"%x\r\n" % len(chunk) + chunk + b"\r\n")
                self.wfile.write(b"0\r\n\r\n")
            except OSError:
                pass
        elif p == "/drop":
            self.send_response(200)
            self.send_header("Content-Length", "100000")
            self.end_headers()
            self.wfile.write(b"y" * 1000)
            self.wfile.flush()
            self.connection.shutdown(socket.SHUT_RDWR)
            self.close_connection = True
        else:
            self.send_body(b"not here", 404)


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a client that hangs up early (the size limit) is expected


class SmtpSink(socketserver.StreamRequestHandler):
    """Just enough SMTP to take mail, every mail filed. A sink with a TLS
    context offers STARTTLS and goes no further than the handshake."""

    def reply(self, line):
        self.wfile.write(line.encode() + b"\r\n")
        self.wfile.flush()

    def handle(self):
        self.reply("220 sink ready")
        mail_from, rcpt = "", []
        while True:
            line = self.rfile.readline()
            if not line:
                return
            cmd = line.decode("utf-8", "replace").strip()
            verb = cmd[:4].upper()
            if verb == "EHLO" and self.server.tls:
                self.reply("250-sink")
                self.reply("250 STARTTLS")
            elif verb in ("EHLO", "HELO"):
                self.reply("250 sink")
            elif verb == "STAR" and self.server.tls:
                # Offered and taken: the client must now check our
                # self-signed certificate, and refuse it.
                self.reply("220 go ahead")
                try:
                    tls = self.server.tls.wrap_socket(self.connection, server_side=True)
                    tls.recv(1)
                except (OSError, ssl.SSLError):
                    pass
                return
            elif verb == "MAIL":
                mail_from = cmd[10:].strip()
                self.reply("250 ok")
            elif verb == "RCPT":
                rcpt.append(cmd[8:].strip())
                self.reply("250 ok")
            elif verb == "DATA":
                self.reply("354 go ahead")
                lines = []
                while True:
                    l = self.rfile.readline()
                    if not l or l in (b".\r\n", b".\n"):
                        break
                    lines.append(l[1:] if l.startswith(b"..") else l)
                folder = self.server.mail_dir
                n = len(os.listdir(folder)) + 1
                with open(os.path.join(folder, "mail%d.eml" % n), "wb") as f:
                    f.write(b"X-Envelope-From: " + mail_from.encode() + b"\r\n")
                    f.write(b"X-Envelope-To: " + ",".join(rcpt).encode() + b"\r\n")
                    f.write(b"".join(lines))
                self.reply("250 queued")
            elif verb == "QUIT":
                self.reply("221 bye")
                return
            elif verb in ("RSET", "NOOP"):
                self.reply("250 ok")
            else:
                self.reply("502 not here")


class SmtpServer(socketserver.ThreadingTCPServer):
    daemon_threads = True
    allow_reuse_address = True


def check_outputs(work, check):
    """What the test made, read by other programs; 0 when all is well."""
    failed = 0
    ours = os.path.join(check, "ours.zip")
    with zipfile.ZipFile(ours) as f:
        bad = f.testzip()
        names = sorted(f.namelist())
        want = ["readme.txt", "std/", "std/layers.csv", "std/sub/", "std/sub/r\u00e9seau.txt"]
        if bad or names != want:
            print("FAIL ours.zip as zipfile reads it: bad entry %s, names %s" % (bad, names))
            failed = 1
        elif f.read("std/layers.csv") != b"name,colour\nDUCT,1\n":
            print("FAIL ours.zip: std/layers.csv differs")
            failed = 1
    text, sig, key = open(os.path.join(check, "signed.txt"), encoding="utf-8").read().split("\n")[:3]
    import base64
    der = bytes.fromhex("302a300506032b6570032100") + base64.b64decode(key)
    pem = os.path.join(work, "pub.pem")
    with open(pem, "w") as f:
        f.write("-----BEGIN PUBLIC KEY-----\n%s\n-----END PUBLIC KEY-----\n" % base64.b64encode(der).decode())
    open(os.path.join(work, "msg"), "wb").write(text.encode("utf-8"))
    open(os.path.join(work, "sig"), "wb").write(base64.b64decode(sig))
    try:
        r = subprocess.run(["openssl", "pkeyutl", "-verify", "-pubin", "-inkey", pem, "-rawin",
                            "-in", os.path.join(work, "msg"), "-sigfile", os.path.join(work, "sig")],
                           capture_output=True)
        if r.returncode != 0:
            print("FAIL the signature does not verify as Ed25519 with openssl: %s" % r.stdout.decode())
            failed = 1
        else:
            print("signature verified by openssl as Ed25519 over the text's UTF-8 bytes")
    except OSError as e:
        print("SKIP openssl check of the signature: %s" % e)
    if not failed:
        print("ours.zip read by Python's zipfile: %d entries" % len(names))
    return failed


def serve(server):
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


def main():
    if len(sys.argv) < 4 or sys.argv[2] != "--":
        print(__doc__)
        return 2
    work, command = sys.argv[1], sys.argv[3:]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    env = dict(os.environ)
    env["TMP"] = os.path.join(work, "tmp")
    os.makedirs(env["TMP"])
    write_zips(os.path.join(work, "zips"))
    env["VANTRY_ZIPS"] = os.path.join(work, "zips")
    env["VANTRY_REGISTRY"] = os.path.join(work, "registry")
    mail_dir = os.path.join(work, "mail")
    os.makedirs(mail_dir)
    env["VANTRY_MAIL_DIR"] = mail_dir
    try:
        http_port = serve(Server(("127.0.0.1", 0), Handler))
        smtp = SmtpServer(("127.0.0.1", 0), SmtpSink)
        smtp.mail_dir = mail_dir
        smtp.tls = None
        smtp_port = serve(smtp)
    except OSError as e:
        print("SKIP: no local server could be started on 127.0.0.1: %s" % e)
        return 77
    env["VANTRY_HTTP"] = "http://127.0.0.1:%d" % http_port
    env["VANTRY_SMTP"] = "127.0.0.1:%d" % smtp_port
    cert, key = os.path.join(work, "cert.pem"), os.path.join(work, "key.pem")
    try:
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key,
                        "-out", cert, "-days", "1", "-subj", "/CN=127.0.0.1"],
                       check=True, capture_output=True)
        https = Server(("127.0.0.1", 0), Handler)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        https.socket = context.wrap_socket(https.socket, server_side=True)
        env["VANTRY_HTTPS"] = "https://127.0.0.1:%d" % serve(https)
        smtp_tls = SmtpServer(("127.0.0.1", 0), SmtpSink)
        smtp_tls.mail_dir = mail_dir
        smtp_tls.tls = context
        env["VANTRY_SMTP_TLS"] = "127.0.0.1:%d" % serve(smtp_tls)
    except (OSError, subprocess.CalledProcessError) as e:
        print("note: no HTTPS server (%s); its cases are skipped" % e)
    check = os.path.join(work, "check")
    os.makedirs(check)
    env["VANTRY_CHECK"] = check
    status = subprocess.run(command, env=env).returncode
    return status or check_outputs(work, check)


if __name__ == "__main__":
    sys.exit(main())
