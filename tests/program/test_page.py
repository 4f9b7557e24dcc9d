"""The documentation page in a real browser: in both colour schemes, on a wide window and on a phone."""

import itertools
import socket

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

from page import PAGE
from vocabulary import levels

SCHEMES = ["light", "dark"]
WIDTHS = [1280, 768, 360]
VIEWS = list(itertools.product(SCHEMES, WIDTHS))

FLAGS = [
    "--headless",
    "--no-sandbox",  # its own sandbox will not have root
    "--disable-gpu",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--disable-dev-shm-usage",  # a chroot may have no /dev/shm
]


class Browser:
    def __init__(self, profile):
        options = Options()
        for flag in (*FLAGS, f"--user-data-dir={profile}"):
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = Service("/usr/bin/chromedriver", env={"HOME": str(profile), "PATH": "/usr/bin:/bin"})
        self.driver = webdriver.Chrome(service=service, options=options)

    def open(self, scheme: str, width: int):
        """Shows the page in a window so high that all of it is in sight."""
        feature = {"name": "prefers-color-scheme", "value": scheme}
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})
        self.resize(width, 800)
        self.driver.get(PAGE.as_uri())
        self.resize(width, self.run("return document.documentElement.scrollHeight"))

    def resize(self, width: int, height: int):
        size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500}
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)

    def run(self, script: str, *arguments):
        return self.driver.execute_script(script, *arguments)


@pytest.fixture(scope="module")
def browser(built_page, tmp_path_factory):
    try:
        socket.getaddrinfo("localhost", None)
    except OSError:
        pytest.skip("the browser's driver looks for its browser on localhost, and nothing here says what that is")
    browser = Browser(tmp_path_factory.mktemp("browser"))
    yield browser
    browser.driver.quit()


@pytest.fixture(params=VIEWS, ids=lambda view: f"{view[0]}, {view[1]} pixels")
def view(browser, request) -> Browser:
    browser.open(*request.param)
    return browser


# Of an element, for a message
NAME = "const name = e => `${e.localName}#${e.closest('[id]')?.id}: ${e.textContent.trim().slice(0, 40)}`;"


def test_nothing_stands_out_sideways(view):
    """Nothing reaches beyond the window, and nothing has to be scrolled sideways to be seen."""
    wide = """
        const width = window.innerWidth;
        const wide = e => {
            const box = e.getBoundingClientRect();
            const scrolls = e instanceof HTMLElement && e.clientWidth > 0 && e.scrollWidth > e.clientWidth;
            return box.left < -0.5 || box.right > width + 0.5 || scrolls;
        };
        const shown = e => !e.closest('header > svg, .hidden');
        return [...document.querySelectorAll('*')].filter(e => shown(e) && wide(e)).map(name);
    """
    assert view.run(NAME + wide) == []


def test_texts_in_pictures_stay_inside_their_boxes(view):
    """In DejaVu, the widest of the usual typefaces, so in others too. A text's boxes are those that hold its middle."""
    outside = """
        const inside = (a, b, margin) => a.left >= b.left + margin && a.right <= b.right - margin
            && a.top >= b.top && a.bottom <= b.bottom;
        const holds = (b, x, y) => x > b.left && x < b.right && y > b.top && y < b.bottom;
        const found = [];
        for (const picture of document.querySelectorAll('figure svg')) {
            const frame = picture.getBoundingClientRect();
            const rects = [...picture.querySelectorAll(':scope > rect')].map(r => r.getBoundingClientRect());
            for (const text of picture.querySelectorAll(':scope text')) {
                if (text.closest('defs')) continue;
                const box = text.getBoundingClientRect();
                const [x, y] = [(box.left + box.right) / 2, (box.top + box.bottom) / 2];
                const around = rects.filter(r => holds(r, x, y));
                if (!inside(box, frame, 0) || !around.every(r => inside(box, r, 3))) found.push(name(text));
            }
        }
        return found;
    """
    assert view.run(NAME + outside) == []


def test_texts_stand_out_from_what_is_behind_them(view):
    """At least 4.5 to 1, whatever the browser would paint under the middle of each text."""
    faint = """
        const channel = c => (c /= 255) <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
        const parse = colour => colour.match(/[\\d.]+/g)?.map(Number) ?? [0, 0, 0, 0];
        const luminance = ([r, g, b]) => 0.2126 * channel(r) + 0.7152 * channel(g) + 0.0722 * channel(b);
        const opaque = colour => colour.startsWith('rgb') && (parse(colour)[3] ?? 1) === 1;
        const ratio = (a, b) => (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
        const isText = e => e.localName === 'text' || e.localName === 'tspan';
        const paint = e => e.closest('svg') && e.localName !== 'svg'
            ? (isText(e) ? '' : getComputedStyle(e).fill) : getComputedStyle(e).backgroundColor;
        const found = [];
        let seen = 0;
        const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
        while (walker.nextNode()) {
            const element = walker.currentNode.parentElement;
            if (!walker.currentNode.data.trim() || element.closest('title, desc, defs, style, .hidden')) continue;
            const range = document.createRange();
            range.selectNodeContents(walker.currentNode);
            const box = [...range.getClientRects()].find(r => r.width > 0);
            const stack = document.elementsFromPoint((box.left + box.right) / 2, (box.top + box.bottom) / 2);
            const behind = stack.map(paint).find(opaque);
            const style = getComputedStyle(element);
            const colour = isText(element) ? style.fill : style.color;
            if (ratio(luminance(parse(colour)), luminance(parse(behind))) < 4.5) found.push(name(element));
            ++seen;
        }
        return [found, seen > 500];
    """
    assert view.run(NAME + faint) == [[], True]


@pytest.mark.parametrize("scheme", SCHEMES)
def test_brightness_is_shown_in_its_true_grey(browser, machine, scheme):
    browser.open(scheme, 1280)
    shown = """
        return Object.fromEntries([...document.querySelectorAll('[data-word]')]
            .map(tile => [tile.dataset.word, getComputedStyle(tile).fill]));
    """
    grey = {word: round(255 * float(level)) for word, level in levels(machine).items()}
    assert browser.run(shown) == {word: f"rgb({level}, {level}, {level})" for word, level in grey.items()}


def test_labels_are_shown_in_their_corners(browser):
    browser.open("light", 1280)
    corners = """
        const all = selector => [...document.querySelectorAll(selector)];
        const middle = e => {
            const box = e.getBoundingClientRect();
            return [(box.left + box.right) / 2, (box.top + box.bottom) / 2];
        };
        const pictures = all('[href="#corners-picture"]').map(middle);
        const corner = ([x, y], i) => (y < pictures[i][1] ? 'top' : 'bottom') + (x < pictures[i][0] ? 'left' : 'right');
        return all('[href="#corners-label"]').map(middle).map(corner);
    """
    assert browser.run(corners) == ["topleft", "topright", "bottomleft", "bottomright"]


def test_schemes_are_light_and_dark(browser):
    def background(scheme: str) -> int:
        browser.open(scheme, 360)
        return browser.run("return Number(getComputedStyle(document.body).backgroundColor.match(/\\d+/)[0])")

    assert background("light") > 230
    assert background("dark") < 40


def test_links_lead_to_places_that_are_shown(browser):
    browser.open("light", 360)
    lost = """
        const target = link => document.getElementById(decodeURIComponent(link.hash.slice(1)));
        const links = [...document.querySelectorAll('a[href]:not([href="#"])')];
        return [links.filter(link => !target(link)?.getClientRects().length).map(name), links.length > 50];
    """
    assert browser.run(NAME + lost) == [[], True]


def test_nothing_else_is_loaded(browser):
    browser.open("light", 1280)
    assert browser.run("return performance.getEntriesByType('resource').map(entry => entry.name)") == []
    assert browser.driver.get_log("browser") == []
