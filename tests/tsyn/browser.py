"""A headless Chromium that a test points, drags and types in, over its debugging pipe."""
import base64
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-dev-shm-usage", "--hide-scrollbars", "--remote-debugging-pipe")
WAIT_S = 60.0
KEYS = {"ArrowLeft": 37, "ArrowRight": 39, "Escape": 27}


class Browser:
    """One page. Orders are answered in turn; what the browser tells besides is passed over."""

    def __init__(self, width, height):
        self.profile = tempfile.mkdtemp(prefix="tsyn-browser-")
        orders, self.orders = os.pipe()
        self.answers, answers = os.pipe()

        def put_ends_in_place():
            # By way of higher numbers, since either may be in the other's place.
            os.dup2(orders, 100)
            os.dup2(answers, 101)
            os.dup2(100, 3)
            os.dup2(101, 4)

        self.program = subprocess.Popen(
            ["chromium", *FLAGS, f"--window-size={width},{height}",
             f"--user-data-dir={self.profile}", "about:blank"],
            preexec_fn=put_ends_in_place, pass_fds=(3, 4), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(orders)
        os.close(answers)
        self.count = 0
        self.rest = b""
        self.session = None

    def open(self, url):
        target = self.order("Target.createTarget", url=url)
        self.session = self.order("Target.attachToTarget", targetId=target["targetId"],
                                  flatten=True)["sessionId"]
        self.wait_until("document.readyState === 'complete' && location.href !== 'about:blank'")

    def order(self, method, **parameters):
        self.count += 1
        order = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            order["sessionId"] = self.session
        os.write(self.orders, json.dumps(order).encode() + b"\0")
        give_up = time.monotonic() + WAIT_S
        while True:
            answer = self.next_answer(give_up)
            if answer.get("id") == self.count:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]

    def next_answer(self, give_up):
        while b"\0" not in self.rest:
            left = give_up - time.monotonic()
            if left <= 0 or not select.select([self.answers], [], [], left)[0]:
                raise TimeoutError("the browser does not answer")
            part = os.read(self.answers, 1 << 20)
            if not part:
                raise RuntimeError("the browser has ended")
            self.rest += part
        answer, _, self.rest = self.rest.partition(b"\0")
        return json.loads(answer)

    def evaluate(self, text):
        result = self.order("Runtime.evaluate", expression=text, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{text}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def wait_until(self, text):
        give_up = time.monotonic() + WAIT_S
        while not self.evaluate(text):
            if time.monotonic() > give_up:
                raise TimeoutError(text)
            time.sleep(0.05)

    def mouse(self, kind, x, y, pressed=False, clicks=1):
        self.order("Input.dispatchMouseEvent", type=kind, x=x, y=y, clickCount=clicks,
                   button="left" if kind != "mouseMoved" or pressed else "none",
                   buttons=1 if pressed else 0)

    def click(self, x, y):
        self.mouse("mousePressed", x, y, pressed=True)
        self.mouse("mouseReleased", x, y)

    def drag(self, x, to_x, y):
        self.mouse("mousePressed", x, y, pressed=True)
        self.mouse("mouseMoved", to_x, y, pressed=True)
        self.mouse("mouseReleased", to_x, y)

    def key(self, name):
        for kind in ("keyDown", "keyUp"):
            self.order("Input.dispatchKeyEvent", type=kind, key=name, code=name,
                       windowsVirtualKeyCode=KEYS[name])

    def dark(self, is_dark):
        self.order("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if is_dark else "light"}])

    def screenshot(self, path):
        shot = self.order("Page.captureScreenshot", format="png", captureBeyondViewport=True)
        path.write_bytes(base64.b64decode(shot["data"]))

    def end(self):
        os.close(self.orders)
        os.close(self.answers)
        self.program.terminate()
        self.program.wait(timeout=WAIT_S)
        shutil.rmtree(self.profile, ignore_errors=True)
