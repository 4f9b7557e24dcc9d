"""The guide and both manual pages in a real browser: in both colour schemes, on a wide window, a phone and paper."""

import itertools
import socket
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

from machine import cannot_run
from page import PAGE, PAGES
from vocabulary import LEVELS

SCHEMES = ["light", "dark"]


@pytest.fixture(scope="module")
def browser(built_page, tmp_path_factory):
    try:
        socket.getaddrinfo("localhost", None)
    except OSError:
        cannot_run("the browser's driver needs localhost, which has no address here")
    options = Options()
    options.add_argument("--headless")
    options.add_argument("--no-sandbox")  # its own sandbox refuses root
    options.add_argument("--disable-dev-shm-usage")  # a chroot may have no /dev/shm
    options.add_argument("--disable-component-update")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    home = str(tmp_path_factory.mktemp("browser"))
    service = Service("/usr/bin/chromedriver", env={"HOME": home, "TMPDIR": home, "PATH": "/usr/bin:/bin"})
    with webdriver.Chrome(service=service, options=options) as browser:
        yield browser


def show(browser, page: Path, scheme: str = "light", width: int = 1280, medium: str = "screen"):
    """Shows the page in a window that is higher than the page."""
    size = {"width": width, "height": 30000, "deviceScaleFactor": 1, "mobile": width < 500}
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
    feature = {"name": "prefers-color-scheme", "value": scheme}
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": medium, "features": [feature]})
    browser.get(page.as_uri())


VIEWS = list(itertools.product(PAGES, SCHEMES, [(1280, "screen"), (768, "screen"), (360, "screen"), (768, "print")]))


@pytest.fixture(scope="module", params=VIEWS, ids=lambda view: f"{view[0].stem}, {view[1]}, {view[2]}")
def view(browser, request):
    page, scheme, (width, medium) = request.param
    show(browser, page, scheme, width, medium)
    return browser


# Names an element in a message
NAME = "const name = e => `${e.localName}#${e.closest('[id]')?.id}: ${e.textContent.trim().slice(0, 40)}`;"


def test_nothing_is_wider_than_the_window_its_picture_or_its_box(view):
    """Nothing reaches beyond the window or scrolls sideways. A text in a picture stays in it, and in each rectangle
    around its middle: here in DejaVu, the widest usual typeface, so in others too."""
    wide = """
        const box = e => e.getBoundingClientRect();
        const around = e => {
            const picture = e.closest('text')?.ownerSVGElement;
            if (!picture) return [document.body];
            const [x, y] = [(box(e).left + box(e).right) / 2, (box(e).top + box(e).bottom) / 2];
            return [picture, ...document.elementsFromPoint(x, y).filter(other => other.matches('svg > rect'))];
        };
        const reaches = (e, frame) => box(e).left < box(frame).left - 0.5 || box(e).right > box(frame).right + 0.5;
        const scrolls = e => e instanceof HTMLElement && e.clientWidth > 0 && e.scrollWidth > e.clientWidth;
        return [...document.querySelectorAll('*')]
            .filter(e => !e.closest('head, defs, title, desc, header > svg, .hidden'))
            .filter(e => scrolls(e) || around(e).some(frame => reaches(e, frame))).map(name);
    """
    assert view.execute_script(NAME + wide) == []


# The contrast of two colours, as the Web Content Accessibility Guidelines define it
CONTRAST = """
    const channel = c => (c /= 255) <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
    const luminance = ([r, g, b]) => 0.2126 * channel(r) + 0.7152 * channel(g) + 0.0722 * channel(b);
    const contrast = (...colours) => {
        const [dark, light] = colours.map(colour => luminance(colour.match(/[\\d.]+/g))).sort((a, b) => a - b);
        return (light + 0.05) / (dark + 0.05);
    };
"""


def test_texts_stand_out_from_their_background(view):
    """At least 4.5 to 1, compared with what the browser paints under the middle of each text."""
    contrasts = """
        const paint = e => getComputedStyle(e)[e.matches('svg *') ? 'fill' : 'backgroundColor'];
        const opaque = colour => colour.startsWith('rgb(');
        const found = [];
        const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
        while (walker.nextNode()) {
            const element = walker.currentNode.parentElement;
            if (!walker.currentNode.data.trim() || element.closest('title, desc, defs, style, .hidden')) continue;
            const range = document.createRange();
            range.selectNodeContents(walker.currentNode);
            const box = [...range.getClientRects()].find(r => r.width > 0);
            if (!box) continue; // it is not shown
            const under = document.elementsFromPoint((box.left + box.right) / 2, (box.top + box.bottom) / 2);
            const background = under.filter(e => !e.closest('text')).map(paint).find(opaque);
            const colour = getComputedStyle(element)[element.closest('text') ? 'fill' : 'color'];
            found.push([contrast(colour, background), name(element)]);
        }
        return found;
    """
    texts = view.execute_script(NAME + CONTRAST + contrasts)
    assert len(texts) > 100
    assert [text for text in texts if text[0] < 4.5] == []


def test_browser_has_no_complaint(view):
    assert view.get_log("browser") == []


@pytest.mark.parametrize("manual", PAGES[1:], ids=lambda page: page.stem)
def test_contents_are_beside_the_manual_or_before_it_on_a_phone(browser, manual):
    places = """
        const box = selector => document.querySelector(selector).getBoundingClientRect();
        const [contents, text] = [box('.manual-text > ul'), box('.manual-text > section')];
        return {beside: contents.right < text.left, before: contents.bottom <= text.top};
    """
    show(browser, manual)
    assert browser.execute_script(places) == {"beside": True, "before": False}
    show(browser, manual, width=360)
    assert browser.execute_script(places) == {"beside": False, "before": True}


@pytest.mark.parametrize("medium", ["screen", "print"])
@pytest.mark.parametrize("scheme", SCHEMES)
def test_dark_scheme_is_dark_on_a_screen_and_changes_no_brightness(browser, scheme, medium):
    show(browser, PAGE, scheme, medium=medium)
    shades = """
        const tiles = [...document.querySelectorAll('[data-word]')];
        const paper = getComputedStyle(document.body).backgroundColor;
        return [Number(paper.match(/\\d+/)[0]), tiles.map(tile => [tile.dataset.word, getComputedStyle(tile).fill])];
    """
    paper, tiles = browser.execute_script(shades)
    dark = scheme == "dark" and medium == "screen"
    assert (paper < 40, paper > 230) == (dark, not dark)
    greys = {word: round(255 * float(level)) for word, level in LEVELS.items()}
    assert tiles == [[word, f"rgb({grey}, {grey}, {grey})"] for word, grey in greys.items()]


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_print_keeps_each_entry_together_and_the_default_filled(browser, page):
    show(browser, page, medium="print")
    others = """
        const others = (selector, property, value) => [...document.querySelectorAll(selector)]
            .filter(e => getComputedStyle(e)[property] !== value);
        return [...others('dt, h1, h2', 'breakAfter', 'avoid'), ...others('dd, pre, figure', 'breakInside', 'avoid'),
            ...others('.default', 'printColorAdjust', 'exact')].map(name);
    """
    assert browser.execute_script(NAME + others) == []
