"""Uses the page of `halvern sandbox` in Chromium, as a tester would, while `halvern` makes real calls.

usage: page.py HALVERN [SCREENSHOTS]

With a directory for screenshots, leaves one of each look of the page there.
"""
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.select import Select

PROGRAM = os.path.abspath(sys.argv[1])
SCREENSHOTS = sys.argv[2] if len(sys.argv) > 2 else None
SECONDS = 20
MARKUP = '<img src=x onerror="document.title=1"><b>&amp;</b>'
AUDIOGRAMS = json.dumps([{"orientation": ear, "serialNumber": MARKUP, "tube": "Slim", "values": [
    {"frequency": 250, "volume": 20}, {"frequency": 1000, "volume": 35.5}, {"frequency": 4000, "volume": 60 + less}]}
    for ear, less in (("Left", 0), ("Right", -15))])


def wait(condition, what):
    deadline = time.monotonic() + SECONDS
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {SECONDS} s: {what}")
        time.sleep(0.02)
    return result


class Sandbox:
    """The program, with a stand-in for the program that opens pages in the browser."""

    def __init__(self, directory, port=0):
        opened = os.path.join(directory, "opened")
        opener = os.path.join(directory, "xdg-open")
        with open(opener, "w", encoding="ascii") as script:
            script.write(f'#!/bin/sh\necho "$1" >"{opened}.new" && mv "{opened}.new" "{opened}"\n')
        os.chmod(opener, 0o755)
        path = directory + ":" + os.environ["PATH"]
        self.process = subprocess.Popen([PROGRAM, "sandbox", "--port", str(port), "--open"], stdout=subprocess.DEVNULL,
                                        env={**os.environ, "PATH": path})
        wait(lambda: os.path.exists(opened), "the page is opened")
        with open(opened, encoding="ascii") as file:
            self.url = file.read().strip()
        os.remove(opened)
        self.port = int(re.fullmatch(r"http://127\.0\.0\.1:(\d+)/", self.url)[1])

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(SECONDS) == 0


class Tester:
    def __init__(self, url, profile):
        options = webdriver.ChromeOptions()
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-sync",
                         "disable-background-networking", "disable-component-update", f"user-data-dir={profile}"):
            options.add_argument("--" + argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.resize(1280, 1000)
        self.url = url
        self.driver.get(url)
        self.wait_for("live", "live")

    def resize(self, width, height, scheme="light"):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def at(self, name):
        return self.driver.find_element(By.ID, name)

    def text(self, name):
        return self.driver.execute_script("return document.getElementById(arguments[0]).innerText", name)

    def wait_for(self, name, words):
        wait(lambda: words in self.text(name), f"{words!r} in {name}: {self.text(name)!r}")

    def newest(self):
        """The words of the newest call."""
        return self.driver.execute_script(
            "return [...document.querySelector('#calls summary')?.children ?? []].map(one => one.innerText)")

    def details(self):
        """Those of the newest call."""
        if not self.driver.find_element(By.CSS_SELECTOR, "#calls details").get_property("open"):
            self.driver.find_element(By.CSS_SELECTOR, "#calls summary").click()
        wait(lambda: self.driver.find_elements(By.CSS_SELECTOR, "#calls li:first-child pre"), "details")
        return self.driver.find_element(By.CSS_SELECTOR, "#calls li:first-child .detail").text

    def fill(self, name, value):
        self.at(name).clear()
        self.at(name).send_keys(str(value))

    def arm(self, operation, kind, delay=0, every=False, **fields):
        Select(self.at("operation")).select_by_value(operation)
        Select(self.at("kind")).select_by_value(kind)
        self.fill("delay", delay)
        for name, value in fields.items():
            self.fill(name, value)
        if self.at("all").is_selected() != every:
            self.at("all").click()
        self.driver.find_element(By.CSS_SELECTOR, "#script button.main").click()
        self.wait_for("scripts", operation)

    def call(self, *arguments, status=0, **options):
        """Makes a call with the program."""
        done = subprocess.run(self.command(*arguments), capture_output=True, text=True, timeout=SECONDS, **options)
        assert done.returncode == status, (arguments, done)
        return done

    def command(self, *arguments):
        return [PROGRAM, *arguments, "--base-url", self.url[:-1], "--api-key", "sandbox-key"]

    def press(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def tab_to(self, script):
        """Presses the tabulator until `script` holds for the element `at`."""
        for _ in range(60):
            if self.driver.execute_script("const at = document.activeElement; return " + script):
                return
            self.press(Keys.TAB)
        raise AssertionError("not reached by keyboard: " + script)


def shows_calls_as_they_arrive(tester):
    tester.call("register", "--email", "anna@example.com", "--password", "correct horse")
    wait(lambda: tester.newest()[1:3] == ["register", "200"], "the call")
    words = tester.details()
    assert '"email": "anna@example.com"' in words and "correct horse" not in words, words
    assert "sandbox-key" not in words and not re.search(r"[0-9a-f]{32}", words), words
    tester.at("reveal").click()
    words = tester.details()
    assert '"password": "correct horse"' in words and "Api-Key: sandbox-key" in words, words
    assert re.search(r'"accessToken": "[0-9a-f]{32}"', words), words
    tester.at("reveal").click()
    tester.wait_for("accounts", "not confirmed")


def confirms_an_address_with_one_click(tester):
    tester.driver.find_element(By.CSS_SELECTOR, "#mails a").click()
    tester.wait_for("accounts", "anna@example.com\nconfirmed")
    tester.wait_for("mails", "Confirmed")


def expires_tokens(tester):
    answer = json.loads(tester.call("login", "--email", "anna@example.com", "--password", "correct horse").stdout)
    token = ["--access-token", answer["accessToken"]]
    tester.call("check-if-validated", *token)
    tester.call("update", "--birthdate", "1980-05-17", "--sex", "female", *token)
    device = "--product-name Clarity --hardware-version 1 --firmware-version 1 --tube Slim --orientation Left".split()
    tester.call("register-device", *device, *token)
    tester.wait_for("accounts", "confirmed · born 1980-05-17 · sex Female · 1 hearing aid (Left: Clarity)")
    tester.call("profile", "--audiogram", "/dev/stdin", "--chart", "/dev/null", *token, input=AUDIOGRAMS)
    wait(lambda: tester.at("chart").get_property("naturalWidth"), "the chart")
    assert "right ear" in tester.at("chart").get_attribute("alt").lower(), tester.at("chart").get_attribute("alt")
    tester.at("expire").click()
    tester.wait_for("said", "expired")
    tester.call("check-if-validated", *token, status=3)
    wait(lambda: tester.newest()[1:3] == ["checkIfValidated", "401"], "the refusal")


def adds_an_account(tester):
    tester.fill("email", "bo@example.com")
    tester.fill("password", "a password")
    tester.driver.find_element(By.CSS_SELECTOR, "#account button").click()
    tester.wait_for("accounts", "bo@example.com")
    tester.call("login", "--email", "bo@example.com", "--password", "a password")


def makes_calls_fail(tester):
    login = ["login", "--email", "bo@example.com", "--password", "a password"]
    for kind, fields, status, words in (("status", {"status": 503, "message": "Later."}, 5, "503"),
                                        ("invalid", {"message": "Too young."}, 1, "400"),
                                        ("text", {"status": 200, "message": "<html>"}, 5, "200"),
                                        ("drop", {}, 4, "closed"),
                                        ("usual", {"delay": 1}, 0, "200")):
        tester.arm("login", kind, **{"count": 1, **fields})
        begin = time.monotonic()
        done = tester.call(*login, status=status)
        assert kind != "invalid" or "Too young." in done.stderr, done
        assert kind != "usual" or time.monotonic() - begin > 1
        wait(lambda: tester.newest()[1:3] == ["login", words], kind)
        wait(lambda: tester.text("scripts") == "", "the script is used up")
    tester.arm("login", "status", status=401, every=True)
    tester.arm("login", "status", status=500, every=True)  # replaces the other
    for _ in range(2):
        tester.call(*login, status=5)
    tester.driver.find_element(By.CSS_SELECTOR, "#scripts button").click()
    wait(lambda: tester.text("scripts") == "", "the script is removed")
    tester.call(*login)
    tester.arm("login", "never")
    with subprocess.Popen(tester.command(*login), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as client:
        wait(lambda: tester.newest()[1:3] == ["login", "waiting"], "a call without an answer")
        client.kill()
    wait(lambda: tester.newest()[1:3] == ["login", "client left"], "the client leaves")


def shows_markup_as_text(tester):
    tester.call("login", "--email", MARKUP, "--password", MARKUP, "--app-instance-name", MARKUP, status=1)
    wait(lambda: tester.newest()[1:3] == ["login", "400"], "the call")
    assert MARKUP.replace('"', '\\"') in tester.details()
    email = "<img/src=x/onerror=document.title=1>@example.com"
    tester.call("register", "--email", email, "--password", MARKUP)
    tester.wait_for("accounts", email)
    tester.wait_for("mails", email)
    tester.arm("update", "status", message=MARKUP)
    tester.wait_for("scripts", "onerror")
    tester.driver.find_element(By.CSS_SELECTOR, "#scripts button").click()
    assert tester.driver.title == "Halvern sandbox"
    assert len(tester.driver.find_elements(By.CSS_SELECTOR, "img, b")) == 1  # the chart


def is_usable_by_keyboard(tester):
    tester.driver.get(tester.url)
    tester.wait_for("live", "live")
    tester.tab_to("at.id === 'operation'")
    tester.press("pr")  # chooses "profile"
    tester.tab_to("at.id === 'message'")
    tester.press(Keys.ENTER)
    tester.wait_for("scripts", "profile")
    tester.tab_to("at.ariaLabel === 'Remove the scripts of profile'")
    tester.press(Keys.ENTER)
    wait(lambda: tester.text("scripts") == "", "the script is removed")
    assert tester.driver.switch_to.active_element.get_attribute("id") == "scripts"
    tester.driver.execute_script("document.activeElement.blur(); scrollTo(0, 0)")
    tester.driver.get(tester.url)
    wait(tester.newest, "calls")
    tester.tab_to("at.tagName === 'SUMMARY'")
    tester.press(Keys.ENTER)
    wait(lambda: tester.driver.find_elements(By.CSS_SELECTOR, "#calls pre"), "details")


def names_its_controls(tester):
    roles = {"button", "checkbox", "combobox", "textbox", "spinbutton", "link", "list", "img", "image", "region"}
    nodes = tester.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    nodes = [node for node in nodes if not node["ignored"] and node["role"]["value"] in roles]
    nameless = [node["role"] for node in nodes if not node.get("name", {}).get("value")]
    assert len(nodes) > 20 and not nameless, nameless


def fits_every_screen(tester):
    backgrounds = set()
    for width, height in ((360, 780), (1280, 1000)):
        for scheme in ("light", "dark"):
            tester.resize(width, height, scheme)
            needed, background = tester.driver.execute_script(
                "return [document.documentElement.scrollWidth, getComputedStyle(document.body).backgroundColor]")
            assert needed <= width, (needed, width)
            backgrounds.add(background)
            if SCREENSHOTS:
                tester.driver.save_screenshot(os.path.join(SCREENSHOTS, f"{width}-{scheme}.png"))
    assert len(backgrounds) == 2, backgrounds


def resets_everything(tester):
    tester.at("reset").click()
    tester.driver.switch_to.alert.accept()
    for part in ("calls", "accounts", "mails", "scripts"):
        wait(lambda: tester.text(part) == "", part)  # pylint: disable=cell-var-from-loop
    assert not tester.at("chart").is_displayed()


def comes_back_with_the_sandbox(tester, sandbox, directory):
    errors = [entry for entry in tester.driver.get_log("browser") if "status of 4" not in entry["message"]]
    assert not errors, errors
    sandbox.stop()
    tester.wait_for("live", "not connected")
    again = Sandbox(directory, sandbox.port)
    tester.wait_for("live", "live")
    tester.call("register", "--email", "anna@example.com", "--password", "correct horse")
    wait(lambda: tester.newest()[1:3] == ["register", "200"], "a call")
    return again


def main():
    with tempfile.TemporaryDirectory() as directory:
        sandbox = Sandbox(directory)
        tester = Tester(sandbox.url, os.path.join(directory, "profile"))
        try:
            for step in (shows_calls_as_they_arrive, confirms_an_address_with_one_click, expires_tokens, adds_an_account,
                         makes_calls_fail, shows_markup_as_text, is_usable_by_keyboard, names_its_controls,
                         fits_every_screen, resets_everything):
                step(tester)
                print(step.__name__.replace("_", " "), flush=True)
            sandbox = comes_back_with_the_sandbox(tester, sandbox, directory)
            print("comes back with the sandbox")
        finally:
            tester.driver.quit()
            sandbox.stop()


main()
