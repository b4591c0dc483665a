#!/usr/bin/env python3
"""A host of the in-app marketing library written in Python with ctypes only.

It starts the reference marketing service (`iam serve`) on 127.0.0.1, creates a manager over a
fresh preferences file, and plays a short journey: launch, a level completed (a rating question
is shown by the host and tapped, which opens the store), a visit to the shop (an offer is shown
and postponed). It prints one line per thing that happened, and the statistics as JSON last.

    host.py LIBIAM IAM_TOOL [CAMPAIGN]
"""
import ctypes
import json
import os
import subprocess
import sys
import tempfile
import threading

HERE = os.path.dirname(os.path.abspath(__file__))

# iam_status values, iam_display_answer values, iam_reaction values (iam/capi/iam.h).
IAM_OK = 0
IAM_DISPLAY_HOST_WILL_SHOW = 1
IAM_REACTION_CLICK, IAM_REACTION_POSTPONE = 1, 3


class Config(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("preferences_path", ctypes.c_char_p),
                ("base_url", ctypes.c_char_p), ("service_key", ctypes.c_char_p),
                ("app_version", ctypes.c_char_p)]


class DisplayRequest(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("advertisement_id", ctypes.c_char_p),
                ("trigger_id", ctypes.c_char_p), ("display_type", ctypes.c_int)]


DISPLAY_FN = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(DisplayRequest))
ADVERTISEMENTS_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_size_t)
OPEN_URL_FN = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_char_p)
REVIEW_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
WAKE_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Library:
    """The C interface, each call checked: a failure raises with the library's reason."""

    def __init__(self, path):
        lib = ctypes.CDLL(path)
        lib.iam_last_error.restype = ctypes.c_char_p
        lib.iam_version.restype = ctypes.c_char_p
        lib.iam_run_pending.restype = ctypes.c_int64
        lib.iam_string_free.argtypes = [ctypes.c_void_p]
        lib.iam_create.argtypes = [ctypes.POINTER(Config), ctypes.POINTER(ctypes.c_void_p)]
        for name in ("iam_destroy", "iam_set_active", "iam_app_event", "iam_report_reaction",
                     "iam_targets_json", "iam_stats_json", "iam_set_display_handler",
                     "iam_set_advertisements_observer", "iam_set_open_url_handler",
                     "iam_set_review_handler", "iam_set_main_thread_waker"):
            getattr(lib, name).restype = ctypes.c_int
        self.lib = lib

    def check(self, status):
        if status != IAM_OK:
            raise RuntimeError("iam status %d: %s" % (status, self.lib.iam_last_error().decode()))

    def take_string(self, call, *args):
        out = ctypes.c_void_p()
        self.check(call(*args, ctypes.byref(out)))
        try:
            return ctypes.string_at(out.value).decode()
        finally:
            self.lib.iam_string_free(out)


class Host:
    def __init__(self, library, base_url, prefs):
        self.iam = library
        lib = library.lib
        self.woken = threading.Event()
        self.shown = []        # advertisement ids the host was asked to show
        self.opened = []       # links the library asked to open
        self.answers = 0       # answers of the service seen by the observer
        # ctypes callbacks stay referenced while the library may call them.
        self.callbacks = [WAKE_FN(lambda _: self.woken.set()),
                          DISPLAY_FN(self.on_display), ADVERTISEMENTS_FN(self.on_advertisements),
                          OPEN_URL_FN(self.on_open_url), REVIEW_FN(lambda _: print("review requested"))]
        wake, display, advertisements, open_url, review = self.callbacks
        library.check(lib.iam_set_main_thread_waker(wake, None))
        config = Config(ctypes.sizeof(Config), prefs.encode(), base_url.encode(), None, b"1.0")
        handle = ctypes.c_void_p()
        library.check(lib.iam_create(ctypes.byref(config), ctypes.byref(handle)))
        self.manager = handle
        library.check(lib.iam_set_display_handler(self.manager, display, None))
        library.check(lib.iam_set_advertisements_observer(self.manager, advertisements, None))
        library.check(lib.iam_set_open_url_handler(self.manager, open_url, None))
        library.check(lib.iam_set_review_handler(self.manager, review, None))

    def on_display(self, _context, request):
        ad = request.contents.advertisement_id.decode()
        trigger = request.contents.trigger_id
        print("display %s (trigger %s) shown by the host" % (ad, trigger.decode() if trigger else "none"))
        self.shown.append(ad)
        return IAM_DISPLAY_HOST_WILL_SHOW

    def on_advertisements(self, _context, count):
        print("advertisements received: %d" % count)
        self.answers += 1

    def on_open_url(self, _context, url):
        print("open %s" % url.decode())
        self.opened.append(url.decode())
        return 1

    def pump_until(self, done, what, timeout=20.0):
        """Runs the library's main loop whenever it has work, until `done()` holds."""
        lib = self.iam.lib
        while True:
            self.woken.clear()
            delay_ms = lib.iam_run_pending()
            if done():
                return
            wait = timeout if delay_ms < 0 else min(timeout, delay_ms / 1000.0)
            if not self.woken.wait(wait) and delay_ms < 0:
                raise RuntimeError("timed out waiting for " + what)

    def call(self, name, *args):
        self.iam.check(getattr(self.iam.lib, name)(self.manager, *args))
        self.iam.lib.iam_run_pending()

    def play(self):
        self.call("iam_set_active", 1)
        self.pump_until(lambda: self.answers > 0, "the service's answer")
        self.call("iam_app_event", b"appToForeground")
        for event, reaction in ((b"levelComplete", IAM_REACTION_CLICK), (b"openShop", IAM_REACTION_POSTPONE)):
            print("event %s" % event.decode())
            before = len(self.shown)
            self.call("iam_app_event", event)
            self.pump_until(lambda: len(self.shown) > before, "a display request")
            print("tap %s on %s" % ("ok" if reaction == IAM_REACTION_CLICK else "postpone", self.shown[-1]))
            self.call("iam_report_reaction", self.shown[-1].encode(), reaction)
        print("targets shop: %s" % self.iam.take_string(self.iam.lib.iam_targets_json, self.manager, b"shop"))
        print("stats " + self.iam.take_string(self.iam.lib.iam_stats_json, self.manager))

    def close(self):
        self.iam.check(self.iam.lib.iam_destroy(self.manager))
        self.iam.check(self.iam.lib.iam_set_main_thread_waker(None, None))


def main(argv):
    if len(argv) < 3:
        sys.exit(__doc__)
    library = Library(argv[1])
    campaign = argv[3] if len(argv) > 3 else os.path.join(HERE, "campaign.json")
    print("libiam %s" % library.lib.iam_version().decode())
    service = subprocess.Popen([argv[2], "serve", "--campaign", campaign, "--port", "0"],
                               stdout=subprocess.PIPE, text=True)
    try:
        first = service.stdout.readline().split()  # "serving on http://127.0.0.1:PORT (Ctrl-C stops)"
        if len(first) < 3:
            sys.exit("the service did not start")
        with tempfile.TemporaryDirectory() as folder:
            host = Host(library, first[2], os.path.join(folder, "prefs.sqlite"))
            try:
                host.play()
            finally:
                host.close()
    finally:
        service.terminate()
        service.wait()


if __name__ == "__main__":
    main(sys.argv)
