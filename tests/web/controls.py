"""Which controls the page has, and which of them the tests have operated: both as the browser sees them, so that a control that
no test has touched is noticed, whatever it is called.

A control is what somebody can operate, and what the page itself listens to. Controls that stand in rows of a list or a table are
one. One is operated when the browser tells of an event at it: a click, a key that does not just lead away, something typed or chosen.
What listens must have heard of all that it listens to.
"""
import json
import unittest

# Runs in each page before its own scripts, and tells by `toldOfControls`. A path is made of what does not change: the nearest
# element with a name, and from there tags, with a number where several of a kind are different things.
WATCH = """(() => {
  const CONTROLS = 'a[href], button, input, select, textarea, summary, [tabindex="0"], [role="button"], [contenteditable]';
  const OPERATES = ['click', 'dblclick', 'input', 'change', 'submit', 'reset', 'keydown', 'keyup', 'keypress', 'pointerdown', 'pointermove',
    'mousedown', 'mouseup', 'mousemove', 'wheel', 'touchstart', 'dragstart', 'drop', 'paste', 'toggle'];
  const COUNTS = ['A', 'BUTTON', 'INPUT', 'SELECT', 'TEXTAREA', 'TH', 'TD', 'DIV'];
  const told = new Set();
  const path = (element) => {
    if (element.id) return `#${element.id}`;
    const within = element.parentElement;
    const number = within && COUNTS.includes(element.tagName)
      ? [...within.children].filter((one) => one.tagName === element.tagName).indexOf(element) : '';
    return `${within ? `${path(within)} ` : ''}${element.tagName.toLowerCase()}${number}`;
  };
  const tell = (...what) => {
    const text = JSON.stringify(what);
    if (!told.has(text)) toldOfControls(text);
    told.add(text);
  };
  const isOfPlot = (node) => node instanceof Element && node.closest('.uplot') !== null;  // the library's own
  const isPage = () => location.protocol === 'http:';
  const look = (node) => {
    if (!(node instanceof Element) || !isPage()) return;
    for (const one of [node, ...node.querySelectorAll(CONTROLS)])
      if (one.matches(CONTROLS) && !isOfPlot(one)) tell('there', path(one));
  };
  // Behind the page's own additions, whose names may be set later in the same task.
  new MutationObserver((changes) => changes.forEach((change) => change.addedNodes.forEach(look)))
    .observe(document, { childList: true, subtree: true });
  const operates = (event) => ['click', 'input', 'change'].includes(event.type)
    || event.type === 'keydown' && !['Tab', 'Shift'].includes(event.key);
  for (const type of OPERATES) addEventListener(type, (event) => {
    if (!(event.target instanceof Element) || !isPage()) return;
    const control = event.target.closest(CONTROLS);
    if (control && operates(event)) tell('operated', path(control));
    for (const one of event.composedPath()) if (one instanceof Element && !isOfPlot(one)) tell('heard', path(one), type);
  }, true);
  const add = EventTarget.prototype.addEventListener;
  EventTarget.prototype.addEventListener = function (type, ...rest) {
    // It may be put into the page later in the same task.
    if (OPERATES.includes(type) && this instanceof Element)
      queueMicrotask(() => { if (this.isConnected && !isOfPlot(this)) tell('listens', path(this), type); });
    return add.call(this, type, ...rest);
  };
})()"""


class Controls:
    """Of all pages of a test program."""

    def __init__(self):
        self._told = {"there": set(), "operated": set(), "listens": set(), "heard": set()}

    def take(self, told):
        for text in told:
            what, *of = json.loads(text)
            self._told[what].add(" ".join(of))

    def count(self):
        """Controls, and kinds of events that are listened to."""
        return len(self._told["there"]), len(self._told["listens"])

    def untouched(self):
        """What is there, or listens, and was operated by nobody."""
        return sorted(self._told["there"] - self._told["operated"]) + sorted(self._told["listens"] - self._told["heard"])


def count_tests(module):
    """All that the module has, as they are when none is chosen."""
    return unittest.defaultTestLoader.loadTestsFromModule(module).countTestCases()
