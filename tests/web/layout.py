"""How the page is laid out: where its parts lie, compared with what was looked at and found good.

The files layout/NAME.txt have a part in each line: its selector, its left edge and its width, and its height where that depends
on no font. So they hold on each host, whatever fonts it has. Written anew, with SYSLOGMON_WRITE_LAYOUT=1, when the layout is to
be another one: then look at the pictures again.
"""
import json
import os
from pathlib import Path

KEPT = Path(__file__).resolve().parent / "layout"
# Pixels: edges are rounded.
TOLERANCE = 2

# Selectors, and whether the height is compared.
PARTS = {
    "header": False, "nav": False, "main": False, "#facts": False, "#facts div:nth-child(1)": True,
    "#facts div:nth-child(2)": True, "#facts div:nth-child(3)": True, "#facts div:nth-child(5)": False,
    "#course": False, "#plot": True, "#plot canvas": True, ".moment": False, "#legend": False,
    "#events .controls": False, "#events .wide": False, "#files .wide": False, "#sinks .wide": False,
    "#silences .wide": False, "#search": False, "#alert-list": False, "#alert-list li:nth-child(1)": False,
}

BOXES = """(() => {
  const found = {};
  for (const [selector, hasHeight] of Object.entries(%s)) {
    const box = document.querySelector(selector).getBoundingClientRect();
    found[selector] = [box.left, box.width, ...(hasHeight ? [box.height] : [])].map(Math.round);
  }
  return found;
})()""" % json.dumps(PARTS)

# Parts that leave the page at its side, sections that lie above each other or are not one below the other, and texts that
# their box cuts off. Inside of what can be scrolled, all may be wider than it.
FAULTS = """(() => {
  const faults = [];
  const name = (one) => one.tagName.toLowerCase() + (one.id ? "#" + one.id : "") + (one.className ? "." + one.className : "");
  const isSeen = (one) => one.getClientRects().length > 0 && getComputedStyle(one).visibility !== "hidden";
  let below = 0;
  for (const part of document.querySelectorAll("header, nav, main > section")) {
    const box = part.getBoundingClientRect();
    if (box.top + scrollY < below - 1) faults.push(`${name(part)} begins above the end of the part before it`);
    below = box.bottom + scrollY;
    const inside = [...part.children].filter(isSeen);
    for (let i = 1; i < inside.length; ++i) {
      const [a, b] = [inside[i - 1].getBoundingClientRect(), inside[i].getBoundingClientRect()];
      const apart = b.top >= a.bottom - 1 || b.left >= a.right - 1 || a.top >= b.bottom - 1 || a.left >= b.right - 1;
      if (!apart) faults.push(`${name(inside[i])} lies on ${name(inside[i - 1])}`);
    }
  }
  for (const one of document.querySelectorAll("header *, nav *, main *")) {
    if (!isSeen(one) || one.closest("svg, .uplot") || (one.closest(".wide") && !one.matches(".wide"))) continue;
    const box = one.getBoundingClientRect();
    if (box.left < -1 || box.right > innerWidth + 1) faults.push(`${name(one)} leaves the page at its side`);
    const cuts = getComputedStyle(one).overflowX !== "visible" && !one.matches(".wide, input, select");
    if (cuts && one.scrollWidth > one.clientWidth + 1) faults.push(`${name(one)} cuts its text off`);
  }
  return faults;
})()"""

# By the contrast that WCAG 2.1 asks for of texts: 4.5 to 1.
FAINT_TEXTS = """(() => {
  const parts = (colour) => colour.match(/[0-9.]+/g).map(Number);
  const light = (colour) => parts(colour).slice(0, 3).map((part) => part / 255)
    .map((part) => part <= 0.03928 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
    .reduce((sum, part, i) => sum + part * [0.2126, 0.7152, 0.0722][i], 0);
  const ground = (one) => {
    for (; one; one = one.parentElement) {
      const colour = getComputedStyle(one).backgroundColor;
      if ((parts(colour)[3] ?? 1) > 0) return colour;
    }
    return "rgb(255, 255, 255)";
  };
  const faint = new Set();
  for (const one of document.querySelectorAll("body *")) {
    const hasText = [...one.childNodes].some((child) => child.nodeType === Node.TEXT_NODE && child.data.trim() !== "");
    if (!hasText || one.getClientRects().length === 0 || one.closest("script, noscript")) continue;
    const [a, b] = [light(getComputedStyle(one).color), light(ground(one))];
    const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    if (contrast < 4.5) faint.add(`${one.tagName}.${one.className}#${one.id}: ${contrast.toFixed(2)}`);
  }
  return [...faint];
})()"""


def compare(test, name, boxes):
    """Fails unless the boxes are those that are kept for this name."""
    file = KEPT / f"{name}.txt"
    if os.environ.get("SYSLOGMON_WRITE_LAYOUT"):
        file.write_text("".join(f"{selector}\t{' '.join(map(str, box))}\n" for selector, box in boxes.items()))
    kept = {}
    for line in file.read_text().splitlines():
        selector, numbers = line.split("\t")
        kept[selector] = [int(number) for number in numbers.split()]
    test.assertEqual(sorted(kept), sorted(boxes))
    moved = [f"{selector}: {kept[selector]} was good, it is {box}" for selector, box in boxes.items()
             if len(box) != len(kept[selector]) or any(abs(a - b) > TOLERANCE for a, b in zip(box, kept[selector]))]
    test.assertEqual([], moved)
