#!/usr/bin/env python3
"""End-to-end figures of the reference gateway, written as JSON for bench/report.py.

- TELMI requests per second and 99th percentile latency, side by side in one run, each row with a
  simulated device of its own (128 threads, so that the device is never the bottleneck), 32
  keep-alive client connections, every proxy keeping its connections to the device alive:
  (a) the device alone, (b) nginx proxying straight to it, (c) a device's own gateway port with a
  correct Digest answer on every request (a fresh nonce count each, as real clients send),
  (d) the gateway's user-mode port, likewise, (e) Apache httpd 2.4 with mod_auth_digest and
  mod_proxy_http in front of the device. Every row's client sends a Digest answer of its own per
  request (to a made-up nonce where nothing checks it), so that the client, which shares the
  machine, costs every row the same; requests that fail are counted, not hidden. The rows run in
  interleaved rounds (3 by default) and each reports its median round;
- RTSP relay throughput: what 4 clients read at once through the media daemon, beside what
  they read straight from the device, from a device that sends as fast as it is read;
- resident memory of the management service empty, then with 10,000 TELMI users and 1,000
  port bindings.

Everything runs in a temporary gateway home, started and stopped with scripts/gateway.sh.
usage: e2e.py --build DIR --out FILE [--seconds N] [--rounds N] [--requests-only]
"""
import argparse
import hashlib
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

import requests
from requests.auth import HTTPDigestAuth

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
URI = "/TELMI/System/deviceInfo"
ADMIN_PASSWORD = "Adm1n!bench"
USER_PASSWORD = "Relay#Pass2024"
USER_PORT = 18470
USERS, BINDINGS, BATCH = 10000, 1000, 500
THREADS, CONNECTIONS = 2, 32
ANSWERS_PER_SECOND = 40000  # more than any row serves on 2 cores: a replayed answer would fail the row
HERE = os.path.dirname(os.path.abspath(__file__))


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1))


def wrk(url, seconds, answers):
    """Requests/s, p99 latency (ms) and how many requests failed (non-2xx answers, socket errors)."""
    command = ["wrk", f"-t{THREADS}", f"-c{CONNECTIONS}", f"-d{seconds}s", "-s", f"{HERE}/digest-answers.lua", url,
               "--", answers]
    out = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    summary = re.search(r"p99_us (\d+) requests (\d+) failed (\d+)", out)
    return {"rps": float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1)),
            "p99_ms": int(summary.group(1)) / 1000, "requests": int(summary.group(2)), "failed": int(summary.group(3))}


def write_answers(prefix, url, user, password, count):
    """For each wrk thread a nonce of its own and `count` answers to it, nonce counts 1, 2, ...
    Without a url (rows that check nothing) the answers are to a made-up nonce: every row's client
    then does the same work per request."""
    md5 = lambda text: hashlib.md5(text.encode()).hexdigest()
    for thread in range(1, THREADS + 1):
        challenge = requests.get(url).headers["WWW-Authenticate"] if url else f'realm="TELMI", nonce="{thread:032x}"'
        realm = re.search(r'realm="([^"]*)"', challenge).group(1)
        nonce = re.search(r'nonce="([^"]*)"', challenge).group(1)
        opaque = re.search(r'opaque="([^"]*)"', challenge)
        ha1, ha2 = md5(f"{user}:{realm}:{password}"), md5(f"GET:{URI}")
        with open(f"{prefix}.{thread}", "w") as f:
            for nc in range(1, count + 1):
                cnonce = f"{thread:x}{nc:07x}"
                response = md5(f"{ha1}:{nonce}:{nc:08x}:{cnonce}:auth:{ha2}")
                f.write(f'Digest username="{user}", realm="{realm}", nonce="{nonce}", uri="{URI}", qop=auth, '
                        f'nc={nc:08x}, cnonce="{cnonce}", response="{response}", algorithm=MD5'
                        + (f', opaque="{opaque.group(1)}"' if opaque else "") + "\n")
    return prefix


def direct_nginx(work, listen, device_port):
    """An nginx of its own proxying straight to the device, tuned as the gateway's nginx is."""
    os.makedirs(f"{work}/logs", exist_ok=True)
    conf = f"{work}/nginx.conf"
    with open(conf, "w") as f:
        f.write(f"""daemon on; worker_processes auto; pid {work}/nginx.pid; error_log {work}/logs/error.log;
events {{ worker_connections 4096; }}
http {{ access_log {work}/logs/access.log combined buffer=64k flush=2s;
  upstream device {{ server 127.0.0.1:{device_port}; keepalive 8; keepalive_timeout 4s; }}
  server {{ listen {listen}; location / {{ proxy_pass http://device; proxy_http_version 1.1;
    proxy_set_header Connection ""; proxy_set_header Host $host; }} }} }}
""")
    subprocess.run(["/usr/sbin/nginx", "-p", f"{work}/", "-c", conf, "-e", f"{work}/logs/error.log"], check=True)
    return ["/usr/sbin/nginx", "-p", f"{work}/", "-c", conf, "-s", "quit"]


def apache(work, listen, device_port, password):
    """Apache httpd (event MPM) with mod_auth_digest in front of the device, reusing its connections."""
    os.makedirs(work, exist_ok=True)
    md5 = hashlib.md5(f"admin:TELMI:{password}".encode()).hexdigest()
    with open(f"{work}/digest-users", "w") as f:
        f.write(f"admin:TELMI:{md5}\n")
    os.chmod(work, 0o755)
    os.chmod(f"{work}/digest-users", 0o644)
    modules = "/usr/lib/apache2/modules"
    loads = "\n".join(f"LoadModule {name}_module {modules}/mod_{name}.so" for name in (
        "mpm_event", "authn_core", "authn_file", "authz_core", "authz_user", "auth_digest", "proxy", "proxy_http"))
    user = "User www-data\nGroup www-data\n" if os.geteuid() == 0 else ""
    conf = f"{work}/httpd.conf"
    with open(conf, "w") as f:
        f.write(f"""ServerRoot {work}
ServerName 127.0.0.1
Listen 127.0.0.1:{listen}
PidFile {work}/httpd.pid
ErrorLog {work}/error.log
DefaultRuntimeDir {work}
Mutex file:{work} default
{loads}
{user}KeepAlive On
MaxKeepAliveRequests 0
KeepAliveTimeout 15
<Location />
  AuthType Digest
  AuthName "TELMI"
  AuthDigestProvider file
  AuthUserFile {work}/digest-users
  AuthDigestNonceLifetime -1
  Require valid-user
</Location>
ProxyPass / http://127.0.0.1:{device_port}/ ttl=4
""")
    subprocess.run(["/usr/sbin/apache2", "-f", conf, "-k", "start"], check=True)
    for _ in range(100):
        try:
            with socket.create_connection(("127.0.0.1", listen), timeout=0.2):
                break
        except OSError:
            time.sleep(0.05)
    return ["/usr/sbin/apache2", "-f", conf, "-k", "stop"]


def streaming_device():
    """An RTSP address that streams as fast as it is read: the relay, not the source, sets the pace."""
    server = socket.create_server(("127.0.0.1", 0))
    chunk = b"\x80" * 65536

    def stream(connection):
        with connection:
            try:
                while True:
                    connection.sendall(chunk)
            except OSError:
                pass

    def accept():
        while True:
            try:
                connection, _ = server.accept()
            except OSError:
                return
            threading.Thread(target=stream, args=(connection,), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    return server


def read_rate(port, seconds, clients=4):
    """MB/s that `clients` connections read at once, each having sent a request first."""
    totals = [0] * clients

    def read(number):
        buffer = bytearray(1 << 20)
        with socket.create_connection(("127.0.0.1", port)) as connection:
            connection.sendall(b"OPTIONS rtsp://127.0.0.1/ RTSP/1.0\r\nCSeq: 1\r\n\r\n")
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                count = connection.recv_into(buffer)
                if count == 0:
                    break
                totals[number] += count

    readers = [threading.Thread(target=read, args=(n,)) for n in range(clients)]
    for reader in readers:
        reader.start()
    for reader in readers:
        reader.join()
    return sum(totals) / seconds / 1e6


def relay_rows(api, session, seconds):
    """RTSP bytes per second straight from a device and through the media daemon's relay."""
    device = streaming_device()
    try:
        address = f"rtsp://127.0.0.1:{device.getsockname()[1]}"
        added = session.post(f"{api}/api/devices", json={"protocol": 4, "deviceID": "RELAY001", "rtspAddress": address,
                                                         "telmiAddress": f"http://127.0.0.1:{free_port()}"}).json()
        bound = session.post(f"{api}/api/ports", json={"deviceIDs": ["RELAY001"]}).json()["results"][0]
        if bound.get("code") != 0:
            raise RuntimeError(f"the relay device was not bound: {added} {bound}")
        return {"direct_mbps": read_rate(device.getsockname()[1], seconds),
                "relayed_mbps": read_rate(bound["rtspPort"], seconds)}
    finally:
        device.close()


def median_row(rounds):
    """A row's round of median rate, with the requests and failures of all its rounds."""
    middle = dict(sorted(rounds, key=lambda r: r["rps"])[len(rounds) // 2])
    middle.update(requests=sum(r["requests"] for r in rounds), failed=sum(r["failed"] for r in rounds),
                  round_rps=[r["rps"] for r in rounds])
    return middle


def request_rows(home, api, session, seconds, rounds, device_ids, device_ports, port_password):
    """The five rows, each against a device of its own, measured in interleaved rounds so that
    a burst of other work on the machine lands on one round of every row rather than on one row."""
    answers = int(ANSWERS_PER_SECOND * seconds / THREADS)
    stops = []
    try:
        alone, direct, port_device, user_device, behind_apache = range(5)
        direct_port = free_port()
        stops.append(direct_nginx(f"{home}/direct-nginx", direct_port, device_ports[direct]))
        bound = session.post(f"{api}/api/ports", json={"deviceIDs": [device_ids[port_device]]}).json()["results"][0]
        added = session.post(f"{api}/api/users", json={"users": [
            {"userName": "bench", "password": USER_PASSWORD, "deviceID": device_ids[user_device]}]}).json()
        if added["results"][0]["code"] != 0:
            raise RuntimeError(f"the bench user was not added: {added}")
        apache_port = free_port()
        # Apache's workers run as www-data, which may not enter the private gateway home.
        apache_dir = tempfile.mkdtemp(prefix="zqgw-bench-apache-")
        stops.append(["rm", "-rf", apache_dir])
        stops.append(apache(apache_dir, apache_port, device_ports[behind_apache], ADMIN_PASSWORD))

        # row: (URL, user and password checked there, or None where nothing checks answers)
        targets = {
            "device": (f"http://127.0.0.1:{device_ports[alone]}{URI}", None),
            "nginx": (f"http://127.0.0.1:{direct_port}{URI}", None),
            "port": (f"http://127.0.0.1:{bound['httpPort']}{URI}", ("admin", port_password)),
            "user": (f"http://127.0.0.1:{USER_PORT}{URI}", ("bench", USER_PASSWORD)),
            "apache": (f"http://127.0.0.1:{apache_port}{URI}", ("admin", ADMIN_PASSWORD)),
        }
        measured = {name: [] for name in targets}
        for _ in range(rounds):
            for name, (url, credential) in targets.items():
                # Fresh nonces every round: answers of an earlier round would be replays.
                user, password = credential or ("admin", ADMIN_PASSWORD)
                checked_url = url if credential else None
                answer_file = write_answers(f"{home}/{name}-answers", checked_url, user, password, answers)
                # The answers are tens of MB: written back during a row, they would charge it
                # for the disk's work (seen as up to 14 us of kernel workers per request).
                os.sync()
                measured[name].append(wrk(url, seconds, answer_file))
        return {name: median_row(results) for name, results in measured.items()}
    finally:
        for stop in reversed(stops):
            subprocess.run(stop, check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--seconds", type=int, default=10)
    parser.add_argument("--rounds", type=int, default=3, help="request rounds; each row reports its median")
    parser.add_argument("--requests-only", action="store_true", help="skip the memory figures (filling takes minutes)")
    args = parser.parse_args()

    home = tempfile.mkdtemp(prefix="zqgw-bench-")
    env = dict(os.environ, ZQ_GATEWAY_HOME=home)
    gateway = [f"{ROOT}/scripts/gateway.sh", "--home", home, "--build", args.build]
    api_port, device_http, device_rtsp = free_port(), 18480, 18580
    api = f"http://127.0.0.1:{api_port}"
    devsim = None
    figures = {"cores": os.cpu_count()}
    try:
        subprocess.run([f"{args.build}/gateway/gatewayd/zqgatewayd", "init", "--home", home, "--password-file", "-"],
                       input=ADMIN_PASSWORD + "\n", text=True, check=True, env=env, stdout=subprocess.DEVNULL)
        with open(f"{home}/port-admin-password") as f:
            port_password = f.readline().strip()
        with open(f"{home}/gateway.json") as f:
            settings = json.load(f)
        settings.update(managementPort=api_port, telmiUserPort=USER_PORT, nonceLifetimeSec=86400,
                        allowedDeviceNetworks=["127.0.0.0/8"], httpPorts=[16000, 16999], rtspPorts=[17000, 17999])
        with open(f"{home}/gateway.json", "w") as f:
            json.dump(settings, f)
        subprocess.run(gateway + ["start"], check=True, env=env, stdout=subprocess.DEVNULL)
        with open(f"{home}/run/gatewayd.pid") as f:
            service = int(f.read().strip())
        time.sleep(1)
        figures["rss_empty_kib"] = rss_kib(service)

        session = requests.Session()
        session.auth = HTTPDigestAuth("admin", ADMIN_PASSWORD)
        answer = session.put(f"{api}/api/telmi", json={"enabled": 1})
        if not answer.ok:
            raise RuntimeError(f"PUT /api/telmi: {answer.status_code} {answer.text}")
        with open(f"{home}/admin.txt", "w") as f:
            f.write(ADMIN_PASSWORD + "\n")
        devsim = subprocess.Popen([f"{args.build}/gateway/devsim/zqdevsim", "--count", "5", "--protocol", "tarn5",
                                   "--first-http-port", str(device_http), "--first-rtsp-port", str(device_rtsp),
                                   "--http-threads", "128", "--register", api,
                                   "--admin-password-file", f"{home}/admin.txt"],
                                  stdout=subprocess.PIPE, text=True, env=env)
        device_ids = [devsim.stdout.readline().split()[0] for _ in range(5)]
        figures["rows"] = request_rows(home, api, session, args.seconds, args.rounds, device_ids,
                                       [device_http + n for n in range(5)], port_password)
        figures["relay"] = relay_rows(api, session, args.seconds)

        if args.requests_only:
            return
        # Fill the store through the management API, as an administrator would.
        for number in range(1, USERS + BINDINGS):
            session.post(f"{api}/api/devices", json={"protocol": 4, "deviceID": f"MEM{number:05d}",
                                                     "rtspAddress": f"rtsp://127.0.0.1:{device_rtsp}",
                                                     "telmiAddress": f"http://127.0.0.1:{device_http}"}
                         ).raise_for_status()
        for first in range(1, USERS + 1, BATCH):
            users = [{"userName": f"user{n:05d}", "password": USER_PASSWORD, "deviceID": f"MEM{n:05d}"}
                     for n in range(first, min(first + BATCH, USERS + 1))]
            session.post(f"{api}/api/users", json={"users": users}).raise_for_status()
        for first in range(USERS + 1, USERS + BINDINGS, BATCH):
            ids = [f"MEM{n:05d}" for n in range(first, min(first + BATCH, USERS + BINDINGS))]
            session.post(f"{api}/api/ports", json={"deviceIDs": ids}).raise_for_status()
        listed = session.get(f"{api}/api/ports?start=0&max=1").json()
        users = session.get(f"{api}/api/users?start=0&max=1").json()
        figures["stored_bindings"], figures["stored_users"] = listed["totalMatches"], users["totalMatches"]
        time.sleep(1)
        figures["rss_filled_kib"] = rss_kib(service)
    finally:
        with open(args.out, "w") as f:
            json.dump(figures, f)
        if devsim:
            devsim.terminate()
            devsim.wait()
        subprocess.run(gateway + ["stop"], env=env, stdout=subprocess.DEVNULL, check=False)
        shutil.rmtree(home, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
