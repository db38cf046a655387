#!/usr/bin/env python3
"""End-to-end figures of the reference gateway, written as JSON for bench/report.py.

- authenticated TELMI requests per second through a device's own gateway port (nginx, the
  management service's port-mode front end, a simulated device), keep-alive, 8 connections,
  against nginx proxying straight to the same simulated device without authentication;
- resident memory of the management service empty, then with 10,000 TELMI users and 1,000
  port bindings.

Everything runs in a temporary gateway home, started and stopped with scripts/gateway.sh.
usage: e2e.py --build DIR --out FILE [--seconds N] [--requests-only]
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
import time

import requests
from requests.auth import HTTPDigestAuth

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
URI = "/TELMI/System/deviceInfo"
ADMIN_PASSWORD = "Adm1n!bench"
USERS, BINDINGS, BATCH = 10000, 1000, 500


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1))


def wrk(url, seconds, header=None):
    """Requests per second over 8 keep-alive connections; every answer must be a success."""
    command = ["wrk", "-t2", "-c8", f"-d{seconds}s", url]
    if header:
        command[1:1] = ["-H", f"Authorization: {header}"]
    out = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    if "Non-2xx" in out:
        raise RuntimeError("wrk saw failed requests:\n" + out)
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1))


def digest_header(url, user, password):
    """A Digest answer to the gateway's challenge; its nonces stay valid for the whole run."""
    challenge = requests.get(url).headers["WWW-Authenticate"]
    realm = re.search(r'realm="([^"]*)"', challenge).group(1)
    nonce = re.search(r'nonce="([^"]*)"', challenge).group(1)
    md5 = lambda text: hashlib.md5(text.encode()).hexdigest()
    ha1, ha2 = md5(f"{user}:{realm}:{password}"), md5(f"GET:{URI}")
    response = md5(f"{ha1}:{nonce}:00000001:0a4f113b:auth:{ha2}")
    return (f'Digest username="{user}", realm="{realm}", nonce="{nonce}", uri="{URI}", qop=auth, '
            f'nc=00000001, cnonce="0a4f113b", response="{response}", algorithm=MD5')


def direct_nginx(work, listen, device_port):
    """An nginx of its own proxying straight to the device, as the gateway's does to its front end."""
    os.makedirs(f"{work}/logs", exist_ok=True)
    conf = f"{work}/nginx.conf"
    with open(conf, "w") as f:
        f.write(f"""daemon on; worker_processes 1; pid {work}/nginx.pid; error_log {work}/logs/error.log;
events {{ worker_connections 512; }}
http {{ access_log {work}/logs/access.log;
  upstream device {{ server 127.0.0.1:{device_port}; }}
  server {{ listen {listen}; location / {{ proxy_pass http://device; proxy_http_version 1.1;
    proxy_set_header Host $host; }} }} }}
""")
    subprocess.run(["/usr/sbin/nginx", "-p", f"{work}/", "-c", conf, "-e", f"{work}/logs/error.log"], check=True)
    return conf


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--seconds", type=int, default=10)
    parser.add_argument("--requests-only", action="store_true", help="skip the memory figures (filling takes minutes)")
    args = parser.parse_args()

    home = tempfile.mkdtemp(prefix="zqgw-bench-")
    env = dict(os.environ, ZQ_GATEWAY_HOME=home)
    gateway = [f"{ROOT}/scripts/gateway.sh", "--home", home, "--build", args.build]
    api_port, device_http, device_rtsp, direct_port = free_port(), 18480, 18580, free_port()
    api = f"http://127.0.0.1:{api_port}"
    devsim = None
    figures = {"cores": os.cpu_count()}
    try:
        subprocess.run([f"{args.build}/gateway/gatewayd/zqgatewayd", "init", "--home", home, "--password-file", "-"],
                       input=ADMIN_PASSWORD + "\n", text=True, check=True, env=env, stdout=subprocess.DEVNULL)
        with open(f"{home}/gateway.json") as f:
            settings = json.load(f)
        settings.update(managementPort=api_port, telmiUserPort=0, nonceLifetimeSec=86400,
                        allowedDeviceNetworks=["127.0.0.0/8"],
                        httpPortFirst=16000, httpPortLast=16999, rtspPortFirst=17000, rtspPortLast=17999)
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
        devsim = subprocess.Popen([f"{args.build}/gateway/devsim/zqdevsim", "--count", "1", "--protocol", "tarn5",
                                   "--first-http-port", str(device_http), "--first-rtsp-port", str(device_rtsp),
                                   "--register", api, "--admin-password-file", f"{home}/admin.txt"],
                                  stdout=subprocess.PIPE, text=True, env=env)
        device_id = devsim.stdout.readline().split()[0]
        bound = session.post(f"{api}/api/ports", json={"deviceIDs": [device_id]}).json()["results"][0]
        gateway_url = f"http://127.0.0.1:{bound['httpPort']}{URI}"
        figures["rps"] = wrk(gateway_url, args.seconds, digest_header(gateway_url, "admin", ADMIN_PASSWORD))
        conf = direct_nginx(f"{home}/direct-nginx", direct_port, device_http)
        figures["reference_rps"] = wrk(f"http://127.0.0.1:{direct_port}{URI}", args.seconds)
        subprocess.run(["/usr/sbin/nginx", "-p", f"{home}/direct-nginx/", "-c", conf, "-s", "quit"], check=False)

        if args.requests_only:
            return
        # Fill the store through the management API, as an administrator would.
        for number in range(1, USERS + BINDINGS):
            session.post(f"{api}/api/devices", json={"protocol": 4, "deviceID": f"MEM{number:05d}",
                                                     "rtspAddress": f"rtsp://127.0.0.1:{device_rtsp}",
                                                     "telmiAddress": f"http://127.0.0.1:{device_http}"}
                         ).raise_for_status()
        for first in range(1, USERS + 1, BATCH):
            users = [{"userName": f"user{n:05d}", "password": "Bench#Pass2024", "deviceID": f"MEM{n:05d}"}
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
