"""Opens pages of `velmo report` and `velmo fleet` in headless Chromium:
page_test.py VELMO_BINARY SURVEY SURVEY

Asks Chart.js what it draws and compares with the surveys; clicks; saves. Debian's chromium,
chromium-driver and python3-selenium.
"""

import collections
import copy
import json
import math
import pathlib
import re
import subprocess
import sys
import tempfile
import time
from decimal import ROUND_HALF_UP, Decimal

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

MAKE_FLEET = pathlib.Path(__file__).parents[2] / "script/make-fleet"
HOSTILE = "$0</script><img src=x onerror=alert(1)>&amp;\u2028\""
SWITCHES = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-sync "
            "disable-background-networking disable-component-update window-size=1280,900").split()
TAILS = {"median_ns": "", "p99_ns": ", 99th", "p99_9_ns": ", 99.9th"}
DATASETS = """const chart = Chart.getChart(arguments[0]);
  return chart ? chart.data.datasets.map((set, i) => [set.label, chart.isDatasetVisible(i),
    set.data.map((point) => ["x", "y", "xLow", "xHigh", "yLow", "yHigh"].map(
      (name) => point[name] ?? null))]) : [];"""
TABLES = """return [...document.querySelectorAll(arguments[0])].map((table) =>
  [...table.querySelectorAll('tbody tr')].map((row) =>
    [...row.children].map((cell) => cell.textContent.replaceAll('*', ''))))"""


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


def read_tables(browser, selector):
    """Texts of all tables, once the browser has filled those behind folds."""
    tables = lambda: browser.execute_script(TABLES, selector)
    WebDriverWait(browser, 20).until(lambda _: all(tables()))
    return tables()


def shown(value):
    """A figure, or an interval, as the page writes it; a dash where there is none."""
    if value is None:
        return "–"
    if isinstance(value, list):
        return "–".join(map(shown, value))
    digits = 2 if value < 10 else 1 if value < 1000 else 0
    return f"{Decimal(value).quantize(Decimal(1).scaleb(-digits), ROUND_HALF_UP):,}"


def estimate(cell, name, unit=1):
    """Its median, and the ends of its interval."""
    e = cell["summary"][name]
    return e["median"] / unit, [e["low"] / unit, e["high"] / unit]


def median(cell, name):
    return cell["summary"].get(name, {}).get("median")


def memory_name(memory):
    return next(f"node {of}" if name == "node" else of for name, of in memory.items())


def nearest_cells(survey):
    """By memory, from the CPU node with the most cells; of several, that of the least latency."""
    found = {}
    for cell in survey["cells"]:
        if cell["parameters"]["scope"] == "node" and cell["kind"] != "latency_by_size":
            found.setdefault(memory_name(cell["memory"]), []).append(cell)
    for cells in found.values():
        nodes = [c["from"]["cpu_node"] for c in cells]
        idle = {c["from"]["cpu_node"]: median(c, "average_ns") for c in cells
                if c["kind"] == "idle_latency" and c["summary"]}
        nearest = min(nodes, key=lambda node: (-nodes.count(node), idle.get(node, math.inf)))
        cells[:] = [c for c in cells if c["summary"] and c["from"]["cpu_node"] == nearest]
    return found


def curve(cell):
    return sorted(cell["points"], key=lambda point: -point["delay"])


def latency_at(cell, share):
    points = [(median(p, "bytes_per_second"), median(p, "average_ns")) for p in curve(cell)]
    above = next(i for i, point in enumerate(points) if point[0] >= share * max(points)[0])
    if above == 0:
        return None
    (x0, y0), (x1, y1) = points[above - 1:above + 1]
    return y0 + (y1 - y0) * (share * max(points)[0] - x0) / (x1 - x0)


def check_charts(browser, surveys):
    charts = collections.defaultdict(dict)  # what each draws, by label
    overview = collections.defaultdict(list)  # rows by memory
    matrices, nothing = [], [None, None]
    for letter, survey in zip("ABC" if len(surveys) > 1 else [""], surveys):
        label = lambda *words: " · ".join(filter(None, words))
        steps = sorted((c["parameters"]["buffer_bytes"], *estimate(c, "average_ns"))
                       for c in survey["cells"] if c["kind"] == "latency_by_size" and c["summary"])
        if steps:
            charts["staircase"][label(letter, survey["run"]["host"])] = [
                [size, y, *nothing, *ends] for size, y, ends in steps]
        for memory, cells in nearest_cells(survey).items():
            name = label(memory, letter)
            row = ["–"] * 5
            for cell in cells:
                kind, mix = cell["kind"], cell["parameters"].get("mix")
                if kind == "idle_latency":
                    edges, counts = cell["histogram_ns"].values()
                    charts["histograms"][name] = [
                        [math.sqrt((low or high / 2) * high), 100 * n / sum(counts) if n else None,
                         *nothing * 2] for low, high, n in zip(edges, edges[1:], counts)]
                    row[:3] = ["".join(map(shown, estimate(cell, "average_ns"))),
                               shown(median(cell, "p99_ns")), shown(median(cell, "p99_9_ns"))]
                elif kind == "bandwidth":
                    y, ends = estimate(cell, "bytes_per_second", 1e9)
                    charts["mixes"].setdefault(name, []).append([mix, y, *nothing, *ends])
                else:
                    for of, tail in TAILS.items():
                        charts["curves"][f"{name}, {mix}{tail}"] = [
                            [x, y, *(nothing * 2 if tail else x_ends + y_ends)]
                            for p in curve(cell) if of in p["summary"]
                            for x, x_ends in [estimate(p, "bytes_per_second", 1e9)]
                            for y, y_ends in [estimate(p, of)]]
                    if row[3] == "–":
                        row[3:] = [shown(latency_at(cell, share)) for share in (0.5, 0.9)]
            overview[memory].append([name, *row])
        for kind, of, unit in zip(("idle_latency", "bandwidth"), ("average_ns", "bytes_per_second"),
                                  (1, 1e9)):
            matrices.append(sorted(
                [f"node {c['from']['cpu_node']}", memory_name(c["memory"]),
                 *map(shown, estimate(c, of, unit))]
                for c in survey["cells"] if c["kind"] == kind and c["summary"] and
                c["parameters"]["scope"] == "node" and c["parameters"].get("mix", "1:0") == "1:0"))

    for name in "curves", "staircase", "histograms", "mixes":
        sets = browser.execute_script(DATASETS, f"{name}-chart")
        sets = {label: points for label, _, points in sets}
        assert sets == charts[name], (name, sets, charts[name])
    rows = [row for rows in overview.values() for row in rows]
    drawn = [row for table in read_tables(browser, "#memories table") for row in table]
    assert [row[1:4] + row[-2:] for row in drawn] == [row[1:] for row in rows], (drawn, rows)
    assert all(row[0].startswith(name) for row, (name, *_) in zip(drawn, rows)), (drawn, rows)
    drawn = [sorted(row[:4] for row in table) for table in read_tables(browser, ".matrix details")]
    assert drawn == (matrices if max(map(len, matrices)) > 1 else []), (drawn, matrices)


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


def check_fleet(velmo, browser, folder):
    """The page of a made-up fleet names the slow hosts and draws their curves."""
    fleet, page = folder / "fleet", folder / "fleet.html"
    subprocess.run([MAKE_FLEET, fleet, "--hosts=40", "--groups=1", "--faults=3"], check=True)
    run = subprocess.run([velmo, "fleet", fleet, "-o", page, "--json"], stdout=subprocess.PIPE)
    slow = {host["host"]: host["file"] for host in json.loads(run.stdout)["outliers"]}
    browser.get(page.as_uri())
    assert slow and [row[0] for row in read_tables(browser, "#slow table")[0]] == list(slow)
    drawn = browser.execute_script(DATASETS, "curves-1-1-chart")
    for host, _, points in drawn[:-3]:
        cells = json.loads(pathlib.Path(slow[host]).read_text())["cells"]
        assert sorted([f"{x:.6g}", f"{y:.6g}"] for x, y, *_ in points) in [
            sorted([f"{median(p, 'bytes_per_second') / 1e9:.6g}", f"{median(p, 'average_ns'):.6g}"]
                   for p in curve(c)) for c in cells if c["kind"] == "loaded_latency"], host
    assert drawn[:-3] and drawn[-3][0] == "median", drawn
    check_silence(browser, page)


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
            other = json.loads(re.sub(r'"(median|low|high)": ([^,\s]+)', lambda figure:
                                      f'"{figure[1]}": {1.25 * float(figure[2])}', texts[0]))
            other["machine"]["kernel"]["release"] = "9.8.7-other"
            check([*texts, write(other)])
            differing = [row for row in read_tables(browser, "#machine > .scroll")[0]
                         if row[1] != row[3]]
            release = survey["machine"]["kernel"]["release"]
            assert [[row[0], row[1], row[3]] for row in differing] == [
                ["kernel release", release, "9.8.7-other"]], differing

            hostile = copy.deepcopy(other)
            hostile["run"]["host"] = hostile["machine"]["host"] = HOSTILE
            hostile["cells"][0].update(state="failed", message=HOSTILE)
            hostile["cells"][-1]["memory"] = {"device": HOSTILE}
            check([write(hostile)])
            assert browser.title == "velmo: " + HOSTILE
            h1 = browser.find_element(By.TAG_NAME, "h1").get_attribute("textContent")
            assert h1 == HOSTILE and not browser.find_elements(By.CSS_SELECTOR, "img, h1 *")

            check_fleet(velmo, browser, folder)
            bare = {**survey, "machine": {}, "cells": []}
            assert "Nothing was measured" in check([write(bare)])
        finally:
            browser.quit()


main()
