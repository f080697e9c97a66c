"""A headless Chromium by its DevTools protocol, over a pair of pipes."""
import base64
import json
import os
import shutil
import signal
import subprocess
import tempfile

NAMES = ("chromium-headless-shell", "chromium", "chromium-browser", "google-chrome")


def find():
    return next((path for path in map(shutil.which, NAMES) if path), None)


class Browser:
    def __init__(self, executable):
        self.profile = tempfile.TemporaryDirectory(prefix="sve-report-browser-", ignore_cleanup_errors=True)
        theirs_in, self.out = os.pipe()
        self.into, theirs_out = os.pipe()
        # The browser reads from descriptor 3 and writes to 4.
        # A page of the file system may not be shown in a sandbox where this runs as root.
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{theirs_in} 4>&{theirs_out}', "sh", executable, "--headless", "--no-sandbox",
             "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars", "--remote-debugging-pipe",
             "--user-data-dir=" + self.profile.name, "about:blank"],
            pass_fds=(theirs_in, theirs_out), start_new_session=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(theirs_in)
        os.close(theirs_out)
        self.buffer = b""
        self.number = 0
        self.events = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def receive(self):
        while b"\0" not in self.buffer:
            part = os.read(self.into, 1 << 16)
            if not part:
                raise RuntimeError("the browser has ended")
            self.buffer += part
        message, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if hasattr(self, "session"):
            message["sessionId"] = self.session
        text = json.dumps(message).encode() + b"\0"
        while text:
            text = text[os.write(self.out, text):]
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, path, width=1280, height=900, dark=False):
        """Loads a file; returns what went wrong meanwhile, and what it asked the network for."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.events.clear()
        self.call("Page.navigate", url="file://" + os.path.abspath(path))
        while not any(e.get("method") == "Page.loadEventFired" for e in self.events):
            self.events.append(self.receive())
        self.evaluate("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)))")
        wrong = [e for e in self.events if e.get("method") == "Runtime.exceptionThrown" or
                 (e.get("method") == "Log.entryAdded" and e["params"]["entry"]["level"] in ("error", "warning"))]
        asked = [e["params"]["request"]["url"] for e in self.events if e.get("method") == "Network.requestWillBeSent"]
        return wrong, [url for url in asked if not url.startswith(("file:", "data:"))]

    def evaluate(self, expression):
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(json.dumps(answer["exceptionDetails"]))
        return answer["result"].get("value")

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))

    def close(self):
        os.close(self.out)
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.profile.cleanup()
