"""Shared pieces of the browser tests: Debian's headless Chromium through
Selenium, a static file server on loopback, and waiting for a condition with
an upper bound (never a fixed sleep)."""

import functools
import http.server
import os
import shutil
import sys
import tempfile
import threading
import time

SKIP = 77
CHROMIUM = '/usr/bin/chromium'
CHROMEDRIVER = '/usr/bin/chromedriver'


def skip_without_chromium():
    if not (os.access(CHROMIUM, os.X_OK) and os.access(CHROMEDRIVER, os.X_OK)):
        print('SKIP: %s or %s is missing' % (CHROMIUM, CHROMEDRIVER))
        sys.exit(SKIP)


def start_browser(width=1280, height=800, phone=False, language='en-US'):
    """A fresh headless Chromium preferring language; phone=True emulates a
    touch screen of width x height CSS pixels."""
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    profile = tempfile.mkdtemp(prefix='orv-chromium-')
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for arg in ('--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking',
                '--disable-component-update', '--disable-sync', '--no-first-run',
                '--disable-dev-shm-usage', '--user-data-dir=' + profile,
                '--window-size=%d,%d' % (width, height), '--lang=' + language):
        options.add_argument(arg)
    options.add_experimental_option('prefs', {'intl.accept_languages': language})
    if phone:
        options.add_experimental_option('mobileEmulation', {
            'deviceMetrics': {'width': width, 'height': height, 'pixelRatio': 2, 'touch': True},
            'userAgent': 'Mozilla/5.0 (Linux; Android 13; Phone) Mobile Safari/537.36',
        })
    driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    driver.set_script_timeout(60)
    driver.set_page_load_timeout(60)
    original_quit = driver.quit

    def quit_and_clean():
        try:
            original_quit()
        finally:
            shutil.rmtree(profile, ignore_errors=True)

    driver.quit = quit_and_clean
    return driver


def wait_for(what, condition, timeout=30.0, interval=0.05):
    """Polls condition() until it returns something true; fails after
    timeout seconds naming what was awaited and the last value."""
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        try:
            last = condition()
        except Exception as e:  # the page may be between two states
            last = e
        if last and not isinstance(last, Exception):
            return last
        time.sleep(interval)
    raise AssertionError('timed out after %.0f s waiting for %s (last: %r)' % (timeout, what, last))


class _QuietHandler(http.server.SimpleHTTPRequestHandler):
    extensions_map = dict(http.server.SimpleHTTPRequestHandler.extensions_map,
                          **{'.js': 'text/javascript', '.html': 'text/html'})

    def log_message(self, *args):
        pass


def serve_directory(root):
    """Serves root on 127.0.0.1 at a free port; returns (server, base URL)."""
    handler = functools.partial(_QuietHandler, directory=root)
    server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server, 'http://127.0.0.1:%d' % server.server_address[1]
