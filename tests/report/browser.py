"""Pages of reports, in a browser without a screen."""

import os
import pathlib
import subprocess

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

AGENT = os.environ["VXLAN_AGENT"]
JOURNALS = pathlib.Path(__file__).resolve().parents[2] / "examples" / "journals"


def agent(*arguments, **options):
    """What the agent prints; a failure is an exception."""
    return subprocess.run([AGENT, *map(str, arguments)], check=True, timeout=60, text=True,
                          stdout=subprocess.PIPE, **options).stdout


def open_browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--hide-scrollbars"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    browser.set_page_load_timeout(60)
    browser.set_script_timeout(60)
    return browser


def look(browser, page, width=1200, height=900, scheme="light"):
    """Opens a page on a screen of that size, and with that preference."""
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
        "features": [{"name": "prefers-color-scheme", "value": scheme}]})
    browser.get(pathlib.Path(page).resolve().as_uri())


# Of all that is written on the page, the least contrast to what is behind it, and where that is.
LEAST_CONTRAST = """
const numbers = (colour) => colour.match(/[\\d.]+/g).map(Number);
const luminance = (colour) => {
  const [r, g, b] = numbers(colour).slice(0, 3).map((each) => each / 255)
    .map((each) => each <= 0.04045 ? each / 12.92 : ((each + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const behind = (element) => {
  const colour = getComputedStyle(element).backgroundColor;
  return (numbers(colour)[3] ?? 1) > 0 || !element.parentElement ? colour : behind(element.parentElement);
};
let least = [99, 'nothing'];
let count = 0;
for (const element of document.body.querySelectorAll('*')) {
  const isText = [...element.childNodes].some((node) => node.nodeType === 3 && node.data.trim());
  if (!isText || element.closest('script, noscript, .skip')) continue;
  const style = getComputedStyle(element);
  const [a, b] = [luminance(element instanceof SVGElement ? style.fill : style.color), luminance(behind(element))];
  const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  ++count;
  if (contrast < least[0]) least = [contrast, element.outerHTML.slice(0, 120)];
}
return [least[0], least[1], count];
"""
