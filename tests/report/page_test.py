"""Opens pages of `velmo report` in headless Chromium: page_test.py VELMO_BINARY SURVEY...

Asks Chart.js what it draws and compares with the surveys; clicks; saves. Debian's chromium,
chromium-driver and python3-selenium.
"""

import copy
import json
import math
import pathlib
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

HOSTILE = "</script><img src=x onerror=alert(1)>&amp;\u2028\""
SWITCHES = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-sync "
            "disable-background-networking disable-component-update window-size=1280,900").split()
DATASETS = """const chart = Chart.getChart(arguments[0]);
  return chart ? chart.data.datasets.map((set, i) => [set.label, chart.isDatasetVisible(i),
    set.data.map((point) => [point.x, point.y, point.count])]) : [];"""


def open_browser(folder):
    options = webdriver.ChromeOptions()
    for switch in SWITCHES:
        options.add_argument("--" + switch)
    options.add_argument(f"--user-data-dir={folder}/profile")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
    browser = webdriver.Chrome(options=options, service=service)
    browser.execute_cdp_cmd("Browser.setDownloadBehavior",
                            {"behavior": "allow", "downloadPath": str(folder)})
    return browser


def check_silence(browser, page):
    """No message of the console and no request but the page's own (and the start page's)."""
    messages = browser.get_log("browser")
    assert not messages, messages
    events = [json.loads(entry["message"])["message"] for entry in browser.get_log("performance")]
    urls = {event["params"]["request"]["url"] for event in events
            if event["method"] == "Network.requestWillBeSent"}
    asked = {url for url in urls if not url.startswith(("data:", "blob:", "chrome:"))}
    assert asked == {page.as_uri()}, asked


def same_points(drawn, expected):
    return len(drawn) == len(expected) and all(
        x == xe if isinstance(x, str) else math.isclose(x, xe, rel_tol=1e-12) for x, xe in
        zip((v for p in drawn for v in p[:2]), (v for p in expected for v in p)))


def memory_name(memory):
    return next(f"node {of}" if name == "node" else of for name, of in memory.items())


def check_charts(browser, surveys):
    cells = [cell for survey in surveys for cell in survey["cells"]]
    of_kind = lambda kind: [c for c in cells
                            if c["kind"] == kind and c["parameters"]["scope"] == "node"]

    def assert_drawn(name, expected):
        for label, _, points in browser.execute_script(DATASETS, name):
            match = next((e for e in expected if same_points(points, e)), None)
            assert match is not None, (name, label, points)
            expected.remove(match)
        assert not expected, (name, expected)

    shown = [("idle_latency", "average_ns", 1), ("bandwidth", "bytes_per_second", 1e9)]
    tables = browser.find_elements(By.CSS_SELECTOR, ".matrix details")
    for table, (kind, name, unit) in zip(tables, shown * len(surveys)):
        rows = WebDriverWait(browser, 20).until(lambda _: browser.execute_script(
            "arguments[0].open = true; return [...arguments[0].querySelectorAll('tbody tr')].map("
            "(row) => [...row.children].slice(0, 3).map((cell) => cell.textContent))", table))
        expected = {(f"node {c['from']['cpu_node']}", memory_name(c["memory"]),
                     c["summary"][name]["median"] / unit) for c in of_kind(kind) if c["summary"]}
        for row in rows:
            assert any(row[:2] == [*e[:2]] and abs(float(row[2].replace(",", "")) - e[2]) < 0.51
                       for e in expected), (row, expected)

    curves = []
    for cell in of_kind("loaded_latency"):
        points = sorted(cell["points"], key=lambda p: -p["delay"])
        curves += [[(p["summary"]["bytes_per_second"]["median"] / 1e9, p["summary"][name]["median"])
                    for p in points if name in p["summary"]]
                   for name in ("median_ns", "p99_ns", "p99_9_ns")]
    assert_drawn("curves-chart", curves)
    stairs = [sorted((c["parameters"]["buffer_bytes"], c["summary"]["average_ns"]["median"])
                     for c in survey["cells"] if c["kind"] == "latency_by_size" and c["summary"])
              for survey in surveys]
    assert_drawn("staircase-chart", [steps for steps in stairs if steps])
    counts = [c["histogram_ns"]["counts"] for c in of_kind("idle_latency") if "histogram_ns" in c]
    memories = {(i, json.dumps(c["memory"])) for i, s in enumerate(surveys) for c in s["cells"]
                if c["kind"] == "idle_latency" and "histogram_ns" in c}
    drawn = browser.execute_script(DATASETS, "histograms-chart")
    assert len(drawn) == len(memories)
    assert all([count for _, _, count in points] in counts for _, _, points in drawn)
    medians = {(c["parameters"]["mix"], c["summary"]["bytes_per_second"]["median"] / 1e9)
               for c in of_kind("bandwidth") if c["summary"]}
    drawn = browser.execute_script(DATASETS, "mixes-chart")
    bars = [tuple(p[:2]) for _, _, points in drawn for p in points]
    assert set(bars) <= medians and {mix for mix, _ in bars} == {mix for mix, _ in medians}


def check_legend(browser):
    """A button of the legend hides a curve with its band and its tail, and shows it again."""
    shown = lambda: [visible for _, visible, _ in browser.execute_script(DATASETS, "curves-chart")]
    before = shown()
    if not before:
        return
    button = browser.find_element(By.CSS_SELECTOR, "#curves .toggle")
    button.send_keys("\n")
    assert before[:3] == [True] * 3 and shown() == [False] * 3 + before[3:]
    button.send_keys(" ")
    assert shown() == before


def check_saved(browser, folder, texts, read):
    """Surveys as they were, in the eyes of `read`."""
    for button, text in zip(browser.find_elements(By.CSS_SELECTOR, ".save"), texts, strict=True):
        button.click()
        end = time.monotonic() + 20
        while not any(read(file.read_text()) == read(text) for file in folder.glob("velmo_*.json")):
            assert time.monotonic() < end, "what was saved, if anything, is not the survey"
            time.sleep(0.05)
        for file in folder.glob("velmo_*.json"):
            file.unlink()


def main():
    velmo, *paths = sys.argv[1:]
    texts = [pathlib.Path(path).read_text() for path in paths]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        browser = open_browser(folder)

        # velmo and Python write some numbers with different last digits.
        def check(texts, read=json.loads):
            """The page of surveys; their files are made anew."""
            files = [folder / f"survey{i}" for i in range(len(texts))]
            for file, text in zip(files, texts):
                file.write_text(text)
            page = folder / "page.html"
            subprocess.run([velmo, "report", *files, "-o", page], check=True,
                           stdout=subprocess.DEVNULL)
            browser.get(page.as_uri())
            check_charts(browser, [json.loads(text) for text in texts])
            check_legend(browser)
            check_saved(browser, folder, texts, read)
            check_silence(browser, page)
            return browser.find_element(By.TAG_NAME, "main").text

        try:
            for text in texts:
                check([text], read=str)
            write = lambda survey: json.dumps(survey, indent=1, ensure_ascii=False,
                                              separators=(",", ": ")) + "\n"
            survey = json.loads(texts[0])
            other = copy.deepcopy(survey)
            other["machine"]["kernel"]["release"] = "9.8.7-other"
            check([texts[0], texts[0], write(other)])
            differing = [row.text for row in browser.find_elements(
                By.CSS_SELECTOR, "#machine > .scroll tbody tr")]
            assert differing[0].startswith("kernel release"), differing
            assert differing[0].endswith("9.8.7-other") and len(differing) == 1, differing

            hostile = copy.deepcopy(other)
            hostile["run"]["host"] = hostile["machine"]["host"] = HOSTILE
            hostile["cells"][0].update(state="failed", message=HOSTILE)
            hostile["cells"][-1]["memory"] = {"device": HOSTILE}
            check([write(hostile)])
            assert browser.title == "velmo: " + HOSTILE
            h1 = browser.find_element(By.TAG_NAME, "h1").get_attribute("textContent")
            assert h1 == HOSTILE and not browser.find_elements(By.CSS_SELECTOR, "img, h1 *")

            bare = {**survey, "machine": {}, "cells": []}
            assert "Nothing was measured" in check([write(bare)])
        finally:
            browser.quit()


main()
