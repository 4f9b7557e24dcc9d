"""The guide and both manual pages in a real browser: in both colour schemes, on a wide window and on a phone."""

import itertools
import socket
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

from page import MANUALS, PAGE
from vocabulary import levels

SCHEMES = ["light", "dark"]
WIDTHS = [1280, 768, 360]
PAGES = [PAGE, *(manual.with_name(f"{manual.name}.html") for manual in MANUALS)]
VIEWS = list(itertools.product(PAGES, SCHEMES, WIDTHS))

FLAGS = [
    "--headless",
    "--no-sandbox",  # its own sandbox refuses root
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

    def open(self, page: Path, scheme: str = "light", width: int = 1280, medium: str = "screen"):
        """Shows the page in a window as high as the page."""
        feature = {"name": "prefers-color-scheme", "value": scheme}
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": medium, "features": [feature]})
        self.resize(width, 800)
        self.driver.get(page.as_uri())
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
        pytest.skip("the browser's driver needs localhost, which has no address here")
    browser = Browser(tmp_path_factory.mktemp("browser"))
    yield browser
    browser.driver.quit()


@pytest.fixture(scope="module", params=VIEWS, ids=lambda view: f"{view[0].stem}, {view[1]}, {view[2]} pixels")
def view(browser, request) -> Browser:
    browser.open(*request.param)
    return browser


# Names an element in a message
NAME = "const name = e => `${e.localName}#${e.closest('[id]')?.id}: ${e.textContent.trim().slice(0, 40)}`;"


def test_nothing_is_wider_than_the_window(view):
    """Nothing reaches beyond the window or scrolls sideways."""
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
    """In DejaVu, the widest usual typeface, so in others too. A text's boxes are around its middle."""
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


def test_texts_stand_out_from_their_background(view):
    """At least 4.5 to 1, compared with what the browser paints under the middle of each text."""
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
            if (!box) continue; // it is not shown
            const stack = document.elementsFromPoint((box.left + box.right) / 2, (box.top + box.bottom) / 2);
            const background = stack.map(paint).find(opaque);
            const style = getComputedStyle(element);
            const colour = isText(element) ? style.fill : style.color;
            if (ratio(luminance(parse(colour)), luminance(parse(background))) < 4.5) found.push(name(element));
            ++seen;
        }
        return [found, seen > 100];
    """
    assert view.run(NAME + faint) == [[], True]


@pytest.mark.parametrize("manual", PAGES[1:], ids=lambda page: page.stem)
def test_contents_are_beside_the_manual_or_before_it_on_a_phone(browser, manual):
    places = """
        const box = selector => document.querySelector(selector).getBoundingClientRect();
        const [contents, text] = [box('.manual-text > ul'), box('.manual-text > section')];
        return {beside: contents.right < text.left, before: contents.bottom <= text.top};
    """
    browser.open(manual)
    assert browser.run(places) == {"beside": True, "before": False}
    browser.open(manual, width=360)
    assert browser.run(places) == {"beside": False, "before": True}


@pytest.mark.parametrize("scheme", SCHEMES)
def test_brightness_is_shown_in_its_true_grey(browser, machine, scheme):
    browser.open(PAGE, scheme)
    shown = """
        return Object.fromEntries([...document.querySelectorAll('[data-word]')]
            .map(tile => [tile.dataset.word, getComputedStyle(tile).fill]));
    """
    grey = {word: round(255 * float(level)) for word, level in levels(machine).items()}
    assert browser.run(shown) == {word: f"rgb({level}, {level}, {level})" for word, level in grey.items()}


def test_labels_are_shown_in_their_corners(browser):
    browser.open(PAGE)
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


def test_picture_of_clearing_deletes_as_many_as_the_commands(browser):
    browser.open(PAGE)
    numbers = """
        const removed = pre => Number(pre.textContent.match(/Removed (\\d+)/)[1]);
        const told = [...document.querySelectorAll('#clearing pre')].map(removed);
        const [without, withAll] = document.querySelectorAll('#clearing svg > .box');
        const gone = [...document.querySelectorAll('#clearing svg > g > [href="#clear-gone"]')];
        const inside = box => gone.filter(use => use.x.baseVal.value > box.x.baseVal.value
            && use.x.baseVal.value < box.x.baseVal.value + box.width.baseVal.value).length;
        return [told, [inside(without), inside(withAll)]];
    """
    told, drawn = browser.run(numbers)
    assert told == drawn


def test_schemes_are_light_and_dark(browser):
    def background(scheme: str) -> int:
        browser.open(PAGE, scheme)
        return browser.run("return Number(getComputedStyle(document.body).backgroundColor.match(/\\d+/)[0])")

    assert background("light") > 230
    assert background("dark") < 40


@pytest.mark.parametrize("scheme", SCHEMES)
def test_print_is_light_with_filled_defaults(browser, scheme):
    browser.open(PAGE, scheme, medium="print")
    printed = """
        const colour = (e, property) => getComputedStyle(e)[property].match(/\\d+/g).map(Number);
        const chip = document.querySelector('.default');
        return [colour(document.body, 'color')[0] < 60, colour(chip, 'backgroundColor')[0] < 60,
            getComputedStyle(chip).printColorAdjust];
    """
    assert browser.run(printed) == [True, True, "exact"]


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_print_keeps_each_entry_together(browser, page):
    browser.open(page, medium="print")
    parted = """
        const broken = (selector, property) => [...document.querySelectorAll(selector)]
            .filter(e => getComputedStyle(e)[property] !== 'avoid');
        return [...broken('dt, h1, h2', 'breakAfter'), ...broken('dd, pre, figure', 'breakInside')].map(name);
    """
    assert browser.run(NAME + parted) == []


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_browser_has_no_complaint(browser, page):
    browser.open(page)
    assert browser.driver.get_log("browser") == []
