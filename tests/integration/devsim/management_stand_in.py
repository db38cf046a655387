#!/usr/bin/env python3
"""Test stand-in for the gateway's management API, as far as device registration goes:
POST /api/devices and DELETE /api/devices/{index}, behind HTTP Digest (qop=auth) as "admin"
with the password given as the only argument. Listens on 127.0.0.1 on a free port, prints the
port, then one line per accepted request ("POST <body as sorted JSON>", "DELETE <index>").
A device ID starting with BAD is refused with 409."""
import hashlib
import http.server
import json
import re
import sys

REALM = "stand-in gateway"
NONCE = "0123456789abcdef"


def md5(text):
    return hashlib.md5(text.encode()).hexdigest()


class Handler(http.server.BaseHTTPRequestHandler):
    def authorized(self):
        fields = dict(re.findall(r'(\w+)="?([^",]*)"?', self.headers.get("Authorization", "")))
        if fields.get("username") != "admin" or fields.get("nonce") != NONCE:
            return False
        ha1 = md5("admin:%s:%s" % (REALM, sys.argv[1]))
        ha2 = md5("%s:%s" % (self.command, fields.get("uri", "")))
        expected = md5(":".join([ha1, NONCE, fields.get("nc", ""), fields.get("cnonce", ""), "auth", ha2]))
        return fields.get("response") == expected and fields.get("uri") == self.path

    def answer(self, status, body, challenge=False):
        data = json.dumps(body).encode()
        self.send_response(status)
        if challenge:
            self.send_header("WWW-Authenticate", 'Digest realm="%s", qop="auth", nonce="%s"' % (REALM, NONCE))
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def serve(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        if not self.authorized():
            return self.answer(401, {"error": {"code": 0, "message": "unauthorized"}}, challenge=True)
        if self.command == "POST" and self.path == "/api/devices":
            device = json.loads(body)
            if device["deviceID"].startswith("BAD"):
                return self.answer(409, {"error": {"code": 61006, "message": "device refused"}})
            print("POST " + json.dumps(device, sort_keys=True), flush=True)
            return self.answer(201, {"deviceIndex": "index-" + device["deviceID"]})
        if self.command == "DELETE" and self.path.startswith("/api/devices/"):
            index = self.path[len("/api/devices/"):]
            print("DELETE " + index, flush=True)
            return self.answer(200, {"deviceIndex": index})
        return self.answer(404, {"error": {"code": 0, "message": "no such route"}})

    do_POST = serve
    do_DELETE = serve

    def log_message(self, *args):
        pass


def main():
    server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
