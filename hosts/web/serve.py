"""Serves a folder on the loopback address as a host of the page should: with the headers that give it
threads, and with the page's policy, which its workers would not get from the page itself.
serve.py FOLDER [PORT] [--alone]; --alone leaves the headers for threads out."""

import functools
import http.server
import pathlib
import re
import sys

isolation = {
    "Cross-Origin-Opener-Policy": "same-origin",
    "Cross-Origin-Embedder-Policy": "require-corp",
    "Cross-Origin-Resource-Policy": "same-origin",
}


class Handler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {
        **http.server.SimpleHTTPRequestHandler.extensions_map,
        ".js": "text/javascript",
        ".wasm": "application/wasm",
        ".webmanifest": "application/manifest+json",
    }
    headers_sent = isolation
    policy = ""

    def end_headers(self):
        for name, value in self.headers_sent.items():
            self.send_header(name, value)
        self.send_header("Content-Security-Policy", self.policy)
        self.send_header("X-Content-Type-Options", "nosniff")
        self.send_header("Cache-Control", "no-cache")
        super().end_headers()

    def log_message(self, *words):
        pass


if __name__ == "__main__":
    words = [word for word in sys.argv[1:] if word != "--alone"]
    if len(words) != len(sys.argv) - 1:
        Handler.headers_sent = {}
    text = pathlib.Path(words[0], "index.html").read_text()
    found = re.search('"Content-Security-Policy" content="([^"]+)"', text)
    Handler.policy = found[1] + "; frame-ancestors 'none'"
    handler = functools.partial(Handler, directory=words[0])
    port = int(words[1]) if len(words) > 1 else 8070
    with http.server.ThreadingHTTPServer(("127.0.0.1", port), handler) as server:
        print(f"http://127.0.0.1:{server.server_port}/", flush=True)
        try:
            server.serve_forever()
        except KeyboardInterrupt:
            pass
