"""Chromium without a window, driven through its debugging pipe: JSON messages that end with a zero byte. Standard library
only."""
import base64
import json
import os
import subprocess
import tempfile
import time


class Browser:
    def __init__(self, width=1280, height=900):
        self._profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        to_read, self._write = os.pipe()
        self._read, to_write = os.pipe()
        argv = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe", "--no-first-run",
                f"--user-data-dir={self._profile.name}", f"--window-size={width},{height}", "about:blank"]

        def as_three_and_four():
            # Above both, so that neither hides the other.
            low, high = os.dup(to_read), os.dup(to_write)
            os.dup2(low, 3)
            os.dup2(high, 4)

        self._process = subprocess.Popen(argv, preexec_fn=as_three_and_four, pass_fds=(3, 4), stdin=subprocess.DEVNULL,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self._buffer = b""
        self._number = 0
        self._session = None
        self.console = []  # errors and warnings of the page
        self.told = []     # what scripts have told: see listen
        targets = self.call("Target.getTargets")["targetInfos"]
        page = next(target for target in targets if target["type"] == "page")
        self._session = self.call("Target.attachToTarget", targetId=page["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.call(f"{domain}.enable")

    def close(self):
        self._process.kill()
        self._process.wait()
        os.close(self._read)
        os.close(self._write)
        self._profile.cleanup()

    def _message(self):
        while b"\0" not in self._buffer:
            part = os.read(self._read, 1 << 16)
            if not part:
                raise EOFError("the browser has ended")
            self._buffer += part
        text, self._buffer = self._buffer.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self._number += 1
        number = self._number
        message = {"id": number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._write, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._message()
            if answer.get("id") == number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self._note(answer)

    def _note(self, event):
        if event.get("method") == "Runtime.bindingCalled":
            self.told.append(event["params"]["payload"])
        if event.get("method") == "Runtime.exceptionThrown":
            self.console.append(event["params"]["exceptionDetails"].get("exception", {}).get("description", "an exception"))
        if event.get("method") == "Log.entryAdded" and event["params"]["entry"]["level"] in ("error", "warning"):
            self.console.append(event["params"]["entry"]["text"])

    # ---- a page ----

    def size(self, width, height, mobile=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=mobile)

    def dark(self, is_dark):
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}])

    def before_each_page(self, script):
        """Runs it in each page that is opened from now on, before the page's own scripts."""
        self.call("Page.addScriptToEvaluateOnNewDocument", source=script)

    def listen(self, name):
        """Gives each page a function of this name, which takes a text to be told."""
        self.call("Runtime.addBinding", name=name)

    def names(self):
        """Role and name of each node that is told to a reader of the screen."""
        nodes = self.call("Accessibility.getFullAXTree")["nodes"]
        return [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in nodes if not node["ignored"]]

    def open(self, url):
        self.call("Page.navigate", url=url)

    def run(self, script):
        """The value of an expression of the page's."""
        answer = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(f"{script}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def wait(self, script, seconds=60):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            try:
                if self.run(script):
                    return
            except RuntimeError:
                pass  # the page is not there yet
            time.sleep(0.02)
        raise AssertionError(f"it never was: {script}; the console has {self.console}")

    def key(self, key, code=None, text=None):
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=code or key,
                      windowsVirtualKeyCode={"Tab": 9, "Enter": 13, " ": 32, "End": 35, "Home": 36, "Delete": 46, "ArrowLeft": 37,
                                                "ArrowRight": 39}.get(key, 0),
                      **({"text": text} if text and kind == "keyDown" else {}))

    def point(self, x, y):
        """Moves the pointer there."""
        self.call("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y)

    def picture(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
