"""The page of a report, as a reader has it before him: what it draws, and how it is used."""

import itertools
import json
import pathlib
import re
import tempfile
import unittest

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from browser import JOURNALS, LEAST_CONTRAST, agent, look, open_browser

RECORDING = JOURNALS / "fabric-restarts.jsonl"
TIME = re.compile(r"^([\d.]+) s")


def lines_of(text):
    return [json.loads(line) for line in text.splitlines()]


def changes_of(values):
    """(time, value...) of those whose value is not that of the one before."""
    kept = []
    for each in values:
        if not kept or kept[-1][1:] != each[1:]:
            kept.append(each)
    return kept


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.page = pathlib.Path(cls.folder.name) / "fabric.html"
        output = lines_of(agent("replay", "--format", "json", "--timeline", "--report", cls.page, RECORDING))
        cls.turns = [each for each in output if "turn" in each]
        cls.end = [each for each in output if each.get("dump") == "end"][0]
        cls.browser = open_browser()
        cls.addClassCleanup(cls.browser.quit)

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])
        loaded = self.browser.execute_script("return performance.getEntriesByType('resource').map((each) => each.name)")
        self.assertEqual([each for each in loaded if not each.startswith("data:")], [])

    def figure(self, title):
        return self.browser.find_element(By.XPATH, f"//figure[.//h3='{title}']")

    def rows(self, details):
        """Of the table behind a picture: the cells' texts."""
        self.browser.execute_script("arguments[0].open = true", details)
        self.wait(lambda: details.find_elements(By.TAG_NAME, "table"))
        return self.browser.execute_script(
            "return [...arguments[0].querySelectorAll('tbody tr')].map((row) => [...row.cells].map((cell) => cell.textContent))",
            details)

    def points(self, title):
        """(time, value) of all points of a picture."""
        rows = self.rows(self.figure(title).find_element(By.TAG_NAME, "details"))
        return [(float(TIME.match(row[0]).group(1)), int(row[2])) for row in rows]

    def wait(self, condition):
        for _ in range(500):
            result = condition()
            if result:
                return result
            self.browser.execute_async_script("requestAnimationFrame(() => arguments[0]())")
        self.fail("it does not come about")

    def drawn(self, title):
        """(time, value) of the corners of a picture's line, read back from its pixels."""
        picture = self.figure(title).find_element(By.TAG_NAME, "svg")
        path = picture.find_element(By.CSS_SELECTOR, "path.line").get_attribute("d")
        domain = json.loads(picture.get_attribute("data-domain"))
        seconds = (domain["range"][1] - domain["range"][0]) / (domain["right"] - domain["left"])
        hosts = domain["top"] / (domain["bottom"] - domain["above"])
        corners, x, y = [], None, None
        for command, numbers in re.findall(r"([MHVL])([\d. ]+)", path):
            given = [float(each) for each in numbers.split()]
            x = given[0] if command in "MHL" else x
            y = given[-1] if command in "MVL" else y
            corners.append((domain["range"][0] + (x - domain["left"]) * seconds, (domain["bottom"] - y) * hosts))
        return corners, seconds, hosts

    def test_numbers_are_those_of_the_dumps(self):
        look(self.browser, self.page)
        for title, key in (("Hosts in the layer-2 RIB", "hosts"), ("Marked hosts", "marked")):
            wanted = changes_of([(0, 0)] + [(each["turn"], each[key]) for each in self.turns])[1:]
            points = self.points(title)
            shown = changes_of([(0, 0)] + points)[1:]
            self.assertGreater(len(shown), 20)
            self.assertEqual(shown, wanted)
            corners, seconds, unit = self.drawn(title)
            pixel = 0.02  # what coordinates are rounded to, and a little
            drawn = changes_of([(0, 0)] + [(at, round(value)) for at, value in corners])[1:]
            for _, value in corners:
                self.assertLess(abs(value - round(value)), pixel * unit)
            self.assertEqual([value for _, value in drawn], [value for _, value in shown])
            for (at, _), (wanted_at, _) in zip(drawn, shown):
                self.assertLess(abs(at - wanted_at), pixel * seconds)
        floods = sum(len(each.get("dests", ())) for each in self.end["l2rib"]["floodSets"])
        self.assertEqual(self.points("Flood destinations")[-1][1], floods)

    def test_parts_and_batches_add_up(self):
        look(self.browser, self.page)
        for part, name, key in (("vnis", "VNI {0} (VLAN {1})", "vlan"), ("vteps", "{1}", "vtep")):
            section = self.browser.find_element(By.ID, part)
            shown = {row[0]: int(row[1]) for row in self.rows(section.find_element(By.TAG_NAME, "details"))}
            wanted = {}
            for host in self.end["l2rib"]["hosts"]:
                key_of = host[key]
                text = name.format(10000 + key_of if key == "vlan" else "", key_of)
                wanted[text] = wanted.get(text, 0) + 1
            self.assertEqual({key: count for key, count in shown.items() if count}, wanted)
        batches = self.rows(self.figure("Deletions in a batch").find_element(By.TAG_NAME, "details"))
        deleted = {}
        for row in batches:
            deleted[float(TIME.match(row[0]).group(1))] = deleted.get(float(TIME.match(row[0]).group(1)), 0) + int(row[3])
        after_convergence = {at: sum(each["deleted"] for each in self.turns if each["turn"] == at) for at in deleted}
        self.assertGreater(sum(deleted.values()), 50)
        self.assertEqual(deleted, after_convergence)

    def test_pointer_and_keys_tell_a_moment(self):
        look(self.browser, self.page)
        figure = self.figure("Hosts in the layer-2 RIB")
        picture, slider = figure.find_element(By.TAG_NAME, "svg"), figure.find_element(By.TAG_NAME, "input")
        readout = figure.find_element(By.CLASS_NAME, "readout")
        ActionChains(self.browser).move_to_element(picture).perform()
        told = self.wait(lambda: readout.text if "line 24" not in readout.text else None)
        at, line, hosts, marked = re.match(r"([\d.]+) s, line (\d+): (\d+) hosts, (\d+) marked", told).groups()
        turn = [each for each in self.turns if each["turn"] == float(at)][-1]
        self.assertEqual((int(hosts), int(marked)), (turn["hosts"], turn["marked"]))
        self.assertEqual(json.loads(RECORDING.read_text().splitlines()[int(line) - 1])["at"], float(at))
        self.assertEqual(self.figure("Marked hosts").find_element(By.CLASS_NAME, "readout").text, told)
        slider.send_keys(Keys.ARROW_LEFT)
        before = readout.text
        self.assertEqual(slider.get_attribute("aria-valuetext"), before)
        points = self.points("Hosts in the layer-2 RIB")
        index = int(slider.get_attribute("value"))
        self.assertTrue(before.startswith(f"{points[index][0]:g} s") or before.startswith(f"{points[index][0]} s"), before)
        self.assertNotEqual(before, told)
        Select(self.browser.find_element(By.ID, "range")).select_by_index(2)
        windows = json.loads(picture.get_attribute("data-domain"))["range"]
        self.assertTrue(20 < windows[0] < 25.3 and 34.6 < windows[1] < 40, windows)

    def test_a_search_opens_the_story_that_explain_tells(self):
        look(self.browser, self.page)
        mac = "02:01:02:55:00:1c"
        field = self.browser.find_element(By.ID, "mac")
        field.send_keys(mac.replace(":", "-").upper() + Keys.ENTER)
        story = self.browser.find_element(By.ID, "story")
        self.wait(lambda: story.find_elements(By.TAG_NAME, "table"))
        rows = self.browser.execute_script(
            "return [...arguments[0].querySelectorAll('tbody tr')].map((row) => [...row.cells].map((cell) => cell.textContent))", story)
        explained = [each for each in lines_of(agent("explain", "--format", "json", mac, RECORDING)) if each.get("mac") == mac and "line" in each]
        words = [re.sub("[A-Z]", lambda letter: " " + letter[0].lower(), each["event"]) for each in explained]
        self.assertGreater(len(rows), 10)
        self.assertEqual([(int(row[1]), row[2].removesuffix(" by the deferred deletion")) for row in rows],
                         [(each["line"], word) for each, word in zip(explained, words)])
        field.clear()
        field.send_keys("02:99:99:99:99:99" + Keys.ENTER)
        self.assertIn(f"vxlan-agent explain 02:99:99:99:99:99 {RECORDING}", story.text)
        field.clear()
        field.send_keys("55:00:1" + Keys.ENTER)
        self.wait(lambda: story.find_elements(By.TAG_NAME, "button"))[0].send_keys(Keys.ENTER)
        self.assertIn("55:00:1", self.wait(lambda: story.find_elements(By.TAG_NAME, "caption"))[0].text)

    def test_it_is_readable(self):
        for width, scheme in ((1200, "light"), (360, "dark"), (360, "light"), (1200, "dark")):
            look(self.browser, self.page, width=width, scheme=scheme)
            for details in self.browser.find_elements(By.TAG_NAME, "details"):
                self.assertGreater(len(self.rows(details)), 0)
            contrast, where, texts = self.browser.execute_script(LEAST_CONTRAST)
            self.assertGreater(texts, 1000)
            self.assertGreaterEqual(contrast, 4.5, (scheme, where))
            self.assertEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width)
        unnamed = self.browser.execute_script("""
            const name = (each) => each.getAttribute('aria-label') || each.labels?.[0]?.textContent || each.textContent.trim();
            return [...document.querySelectorAll('svg[role=img], input, select, button')].filter((each) => !name(each)).length""")
        self.assertEqual(unnamed, 0)
        levels = self.browser.execute_script("return [...document.querySelectorAll('h1, h2, h3')].map((each) => Number(each.tagName[1]))")
        self.assertEqual(levels[0], 1)
        self.assertTrue(all(after - before <= 1 for before, after in itertools.pairwise(levels)), levels)
        ActionChains(self.browser).send_keys(Keys.TAB).perform()
        focused = self.browser.switch_to.active_element
        self.assertEqual(focused.get_attribute("class"), "skip")
        self.assertGreaterEqual(focused.rect["x"], 0)
        self.assertNotEqual(focused.value_of_css_property("outline-style"), "none")

    def test_hostile_names_stay_texts(self):
        folder = pathlib.Path(self.folder.name) / "<"
        folder.mkdir()
        journal = folder / "script><script>window.owned = 1<!--\x01\u2028\"<img src=x onerror='window.owned = 2'>.jsonl"
        journal.write_bytes((JOURNALS / "move.jsonl").read_bytes())
        page = pathlib.Path(self.folder.name) / "hostile.html"
        agent("replay", "--report", page, journal)
        look(self.browser, page)
        self.assertIsNone(self.browser.execute_script("return window.owned"))
        self.assertEqual(self.browser.execute_script("return document.getElementById('title').textContent"), journal.name)
        self.browser.find_element(By.ID, "mac").send_keys("<img src=x onerror='window.owned = 3'>" + Keys.ENTER)
        self.assertIn("<img", self.browser.find_element(By.ID, "story").text)
        self.assertIsNone(self.browser.execute_script("return window.owned"))

    def test_nothing_is_loaded_whatever_asks(self):
        look(self.browser, self.page)
        refused = self.browser.execute_async_script("""
            const done = arguments[0];
            fetch('data:text/plain,x').then(() => done(false), () => done(true));""")
        self.assertTrue(refused)
        self.assertTrue(all("Content Security Policy" in each["message"] for each in self.browser.get_log("browser")))

    def test_a_long_recording_is_told_in_coarser_points(self):
        journal = pathlib.Path(self.folder.name) / "long.jsonl"
        journal.write_text(agent("generate", "--vnis", 150, "--hosts", 40, "--moves", 5000, "--restarts", 1))
        page = pathlib.Path(self.folder.name) / "long.html"
        output = lines_of(agent("replay", "--format", "json", "--timeline", "--report", page, journal))
        turns = [each for each in output if "turn" in each]
        look(self.browser, page)
        figure = self.figure("Marked hosts")
        rows = self.rows(figure.find_element(By.TAG_NAME, "details"))
        slider = figure.find_element(By.TAG_NAME, "input")
        self.assertEqual((slider.get_attribute("min"), slider.get_attribute("max")), ("0", str(len(rows) - 1)))
        self.assertTrue(1000 < len(rows) <= 2048, len(rows))
        self.assertEqual(max(int(row[4]) for row in rows), max(each["marked"] for each in turns))
        by_time = {}
        for each in turns:
            by_time.setdefault(each["turn"], []).append(each["marked"])
        for row in rows:
            self.assertIn(int(row[2]), by_time[float(TIME.match(row[0]).group(1))])
        section = self.browser.find_element(By.ID, "vnis")
        self.assertEqual(len(section.find_elements(By.CSS_SELECTOR, ".grid figure")), 24)
        self.assertIn("24 of 150 VNIs that changed most; the list has 120", section.text)
        moved = self.browser.find_element(By.ID, "moves").text
        self.assertIn("the last 1000 of 5000 moves", moved)


if __name__ == "__main__":
    unittest.main()
