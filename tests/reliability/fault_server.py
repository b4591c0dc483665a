#!/usr/bin/env python3
"""A marketing service built on Python's own http.server, for faults that are easier to make here.

Usage: fault_server.py ANSWER...  Listens on 127.0.0.1 (a free port) and prints "PORT PID".
The first segment of a request's path picks what it gets: "answerN" the N-th ANSWER (200, no entity
tag, as many servers send), otherwise one of the faults below.
"""
import http.server
import os
import sys

ANSWERS = [answer.encode() for answer in sys.argv[1:]]


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        mode = self.path.split("/")[1]
        if mode.startswith("answer"):
            body = ANSWERS[int(mode[len("answer"):])]
            self.send_response(200)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)
        elif mode == "not-modified":
            # The request named no entity tag: there is nothing this could confirm.
            self.send_response(304)
            self.end_headers()
        elif mode == "broken-chunks":
            # A chunk size that is not hexadecimal, then the connection closes.
            self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                             b"Transfer-Encoding: chunked\r\n\r\n5\r\n{\"adv\r\nzz\r\nertisements\r\n")
            self.close_connection = True
        elif mode == "cut-headers":
            self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: applic")
            self.close_connection = True
        else:
            self.send_error(404)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
print(server.server_address[1], os.getpid(), flush=True)
server.serve_forever()
