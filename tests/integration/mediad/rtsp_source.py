#!/usr/bin/env python3
"""Test stand-in for a camera's RTSP server: one PCMU audio track, RTP interleaved over the
RTSP connection (RTSP/1.0, OPTIONS DESCRIBE SETUP PLAY TEARDOWN). Listens on 127.0.0.1 on a
free port and prints the port on the first line of stdout; serves until terminated."""
import socket
import struct
import sys
import threading
import time

SDP = (
    "v=0\r\n"
    "o=- 1 1 IN IP4 127.0.0.1\r\n"
    "s=Test camera\r\n"
    "c=IN IP4 0.0.0.0\r\n"
    "t=0 0\r\n"
    "m=audio 0 RTP/AVP 0\r\n"
    "a=rtpmap:0 PCMU/8000\r\n"
    "a=control:trackID=0\r\n"
)
SESSION = "5A3F1C27"


def read_request(stream):
    """One request: (method, headers) or None at the end of the stream."""
    line = stream.readline()
    while line in (b"\r\n", b"\n"):
        line = stream.readline()
    if not line:
        return None
    method = line.split(b" ")[0].decode()
    headers = {}
    while True:
        header = stream.readline()
        if header in (b"\r\n", b"\n", b""):
            break
        name, _, value = header.decode().partition(":")
        headers[name.strip().lower()] = value.strip()
    length = int(headers.get("content-length", "0"))
    if length:
        stream.read(length)
    return method, headers


def send_rtp(connection, lock, playing):
    sequence, timestamp = 0, 0
    while playing.is_set():
        packet = struct.pack("!BBHII", 0x80, 0, sequence & 0xFFFF, timestamp, 0x1234ABCD) + b"\xff" * 160
        try:
            with lock:
                connection.sendall(b"$" + bytes([0]) + struct.pack("!H", len(packet)) + packet)
        except OSError:
            return
        sequence += 1
        timestamp += 160
        time.sleep(0.02)


def serve(connection):
    lock = threading.Lock()
    playing = threading.Event()
    stream = connection.makefile("rb")
    try:
        while True:
            request = read_request(stream)
            if request is None:
                break
            method, headers = request
            lines = ["RTSP/1.0 200 OK", "CSeq: " + headers.get("cseq", "0")]
            body = ""
            if method == "OPTIONS":
                lines.append("Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN")
            elif method == "DESCRIBE":
                lines.append("Content-Type: application/sdp")
                body = SDP
            elif method == "SETUP":
                lines += ["Transport: RTP/AVP/TCP;unicast;interleaved=0-1", "Session: " + SESSION]
            elif method == "PLAY":
                lines.append("Session: " + SESSION)
            elif method == "TEARDOWN":
                playing.clear()
            else:
                lines[0] = "RTSP/1.0 405 Method Not Allowed"
            if body:
                lines.append("Content-Length: %d" % len(body))
            with lock:
                connection.sendall(("\r\n".join(lines) + "\r\n\r\n" + body).encode())
            if method == "PLAY" and not playing.is_set():
                playing.set()
                threading.Thread(target=send_rtp, args=(connection, lock, playing), daemon=True).start()
    except OSError:
        pass
    finally:
        playing.clear()
        connection.close()


def main():
    server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    server.bind(("127.0.0.1", 0))
    server.listen(16)
    print(server.getsockname()[1], flush=True)
    while True:
        connection, _ = server.accept()
        threading.Thread(target=serve, args=(connection,), daemon=True).start()


if __name__ == "__main__":
    sys.exit(main())
