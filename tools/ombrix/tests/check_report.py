#!/usr/bin/python3
"""Opens an ombrix report in headless chromium, from disk, and checks what a reader would see.

usage: check_report.py REPORT.html --rows N [--pictures N] [--chromium PROGRAM]

Checks, each failure printed on its own line (exit code 1; 2 for usage errors):
  * the page refers to nothing outside itself (every src/href/url() is a data: URI or a fragment);
  * every picture decoded in the browser (naturalWidth > 0), and there are N of them (--pictures);
  * the tables of class "summary" hold N body rows in all (--rows), as the browser parsed them;
  * the page logged nothing on the console and raised no error event.
The browser reads a copy of the page with a small script added at the top of its head that
records, after the load event, the pictures' natural sizes and every error into the DOM, which
chromium's --dump-dom then prints.
"""

import argparse
import html.parser
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

RESULT_ID = "ombrix-report-check"

PROBE = """<script>
(function () {
  var errors = [];
  window.addEventListener("error", function (event) {
    var target = event.target;
    if (target && target !== window && target.tagName) {
      errors.push("cannot load " + target.tagName.toLowerCase());
    } else {
      errors.push(String(event.message));
    }
  }, true);
  var consoleError = console.error;
  console.error = function () {
    errors.push(Array.prototype.join.call(arguments, " "));
    consoleError.apply(console, arguments);
  };
  window.addEventListener("load", function () {
    var pictures = Array.prototype.map.call(document.images, function (img) {
      return {width: img.naturalWidth, height: img.naturalHeight, complete: img.complete,
              alt: img.alt};
    });
    var out = document.createElement("pre");
    out.id = "%s";
    out.textContent = JSON.stringify({pictures: pictures, errors: errors});
    document.body.appendChild(out);
  });
})();
</script>""" % RESULT_ID

CONSOLE_LINE = re.compile(r":CONSOLE[:(]")


class PageParser(html.parser.HTMLParser):
    """Collects the outside references, the <img> count, the rows of the summary tables and the
    text of the probe's result element."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.external = []
        self.images = 0
        self.summary_rows = 0
        self.summary_tables = 0
        self.result_text = None
        self._table_stack = []  # True for a summary table
        self._in_tbody = []
        self._in_result = False
        self._style = False

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        for name in ("src", "href", "srcset", "poster", "data", "action"):
            value = attributes.get(name)
            if value is not None and not value.startswith(("data:", "#")):
                self.external.append("%s %s=%r" % (tag, name, value[:80]))
        if "style" in attributes:
            self._check_css(attributes["style"])
        if tag == "img":
            self.images += 1
        elif tag == "table":
            summary = "summary" in (attributes.get("class") or "").split()
            self._table_stack.append(summary)
            self._in_tbody.append(False)
            if summary:
                self.summary_tables += 1
        elif tag == "tbody" and self._in_tbody:
            self._in_tbody[-1] = True
        elif tag == "tr" and self._table_stack and self._table_stack[-1] and self._in_tbody[-1]:
            self.summary_rows += 1
        elif tag == "pre" and attributes.get("id") == RESULT_ID:
            self._in_result = True
            self.result_text = ""
        elif tag == "style":
            self._style = True
        elif tag in ("script", "link", "iframe", "object", "embed"):
            if tag != "script" or attributes.get("src"):
                self.external.append(tag)

    def handle_endtag(self, tag):
        if tag == "table" and self._table_stack:
            self._table_stack.pop()
            self._in_tbody.pop()
        elif tag == "tbody" and self._in_tbody:
            self._in_tbody[-1] = False
        elif tag == "pre":
            self._in_result = False
        elif tag == "style":
            self._style = False

    def handle_data(self, data):
        if self._in_result:
            self.result_text += data
        if self._style:
            self._check_css(data)

    def _check_css(self, css):
        for reference in re.findall(r"url\(\s*['\"]?([^'\")]*)", css):
            if not reference.startswith(("data:", "#")):
                self.external.append("url(%s)" % reference[:80])
        if "@import" in css:
            self.external.append("@import")


def parse(text):
    parser = PageParser()
    parser.feed(text)
    parser.close()
    return parser


def find_chromium(wanted):
    for name in ([wanted] if wanted else ["chromium", "chromium-browser", "google-chrome"]):
        path = shutil.which(name)
        if path:
            return path
    return None


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("report")
    arguments.add_argument("--rows", type=int, required=True,
                           help="body rows expected in the summary tables, in all")
    arguments.add_argument("--pictures", type=int, help="pictures expected")
    arguments.add_argument("--chromium", help="the browser program (default: chromium on PATH)")
    arguments.add_argument("--timeout", type=float, default=180.0, help="seconds (default 180)")
    options = arguments.parse_args()

    try:
        with open(options.report, encoding="utf-8") as f:
            page = f.read()
    except (OSError, UnicodeDecodeError) as error:
        print("%s: cannot read (%s)" % (options.report, error), file=sys.stderr)
        return 2
    browser = find_chromium(options.chromium)
    if browser is None:
        print("chromium not found (install the Debian package chromium)", file=sys.stderr)
        return 2

    failures = []
    source = parse(page)
    for reference in source.external:
        failures.append("refers to something outside the page: " + reference)
    if source.images == 0:
        failures.append("the page holds no picture")

    # The probe goes first in <head>, so that it sees every error the page raises.
    match = re.search(r"<head[^>]*>", page, re.IGNORECASE)
    position = match.end() if match else 0
    probed = page[:position] + PROBE + page[position:]

    with tempfile.TemporaryDirectory(prefix="ombrix-report-check-") as folder:
        copy = os.path.join(folder, "report.html")
        with open(copy, "w", encoding="utf-8") as f:
            f.write(probed)
        # --no-sandbox: chromium refuses to run as root otherwise; a small /dev/shm in a container
        # would crash it without --disable-dev-shm-usage.
        command = [browser, "--headless", "--no-sandbox", "--disable-gpu",
                   "--disable-dev-shm-usage", "--no-first-run", "--no-default-browser-check",
                   "--disable-extensions",
                   "--user-data-dir=" + os.path.join(folder, "profile"),
                   "--enable-logging=stderr", "--v=0", "--virtual-time-budget=10000",
                   "--dump-dom", "file://" + copy]
        try:
            run = subprocess.run(command, capture_output=True, text=True, errors="replace",
                                 timeout=options.timeout)
        except subprocess.TimeoutExpired:
            print("%s: chromium did not finish within %g s" % (options.report, options.timeout),
                  file=sys.stderr)
            return 1
    if run.returncode != 0:
        failures.append("chromium exited with code %d" % run.returncode)
    for line in run.stderr.splitlines():
        if CONSOLE_LINE.search(line):
            failures.append("console: " + line.split("] ", 1)[-1])

    loaded = parse(run.stdout)
    if loaded.result_text is None:
        failures.append("the page did not finish loading (no result from the probe)")
    else:
        result = json.loads(loaded.result_text)
        pictures = result["pictures"]
        for index, picture in enumerate(pictures):
            if not picture["complete"] or picture["width"] <= 0 or picture["height"] <= 0:
                failures.append("picture %d (%r) did not decode" % (index + 1, picture["alt"]))
        if options.pictures is not None and len(pictures) != options.pictures:
            failures.append("%d pictures, expected %d" % (len(pictures), options.pictures))
        if len(pictures) != source.images:
            failures.append("the browser shows %d pictures, the page has %d"
                            % (len(pictures), source.images))
        for error in result["errors"]:
            failures.append("error on the page: " + error)
    if loaded.summary_tables == 0:
        failures.append("no table of class \"summary\"")
    if loaded.summary_rows != options.rows:
        failures.append("the summary tables list %d rows, expected %d"
                        % (loaded.summary_rows, options.rows))

    for failure in failures:
        print("%s: %s" % (options.report, failure), file=sys.stderr)
    if failures:
        return 1
    print("%s: %d pictures decoded, %d summary rows, no console error"
          % (options.report, source.images, loaded.summary_rows))
    return 0


if __name__ == "__main__":
    sys.exit(main())
