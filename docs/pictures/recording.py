"""A session at a terminal as an animated picture: what is typed, and what comes of it, at the times at which it came.

It needs no script. Where nothing may move, and where nobody knows how to move it, it shows its last screen."""
from html import escape

CHARACTER = 8.4  # width
LINE = 18  # height
STAYS = 6  # seconds for which the last screen stays, before it begins again


def versions(frames):
    """Of frames (seconds, lines), what each row showed: (row, text, from, until), until None: to the end."""
    found, showing = [], {}
    for moment, lines in frames:
        for row in range(max(len(lines), len(showing))):
            text = lines[row] if row < len(lines) else ""
            before, since = showing.get(row, ("", 0))
            if text == before:
                continue
            if before:
                found.append((row, before, since, moment))
            showing[row] = (text, moment)
    found += [(row, text, since, None) for row, (text, since) in showing.items() if text]
    return sorted(found, key=lambda version: (version[2], version[0]))


def keyframes(name, begin, end, length):
    steps = [(0, "hidden")] if begin > 0 else []
    steps.append((100 * begin / length, "visible"))
    if end is not None:
        steps.append((100 * end / length, "hidden"))
    return f"@keyframes {name}{{" + "".join(f"{at:.3f}%{{visibility:{is_seen}}}" for at, is_seen in steps) + "}"


def svg(frames, columns):
    """Frames are (seconds since the begin, lines of the screen), each with something new."""
    shown = versions(frames)
    length = frames[-1][0] + STAYS
    rows = 1 + max(row for row, *_ in shown)
    width, height = columns * CHARACTER + 24, rows * LINE + 24
    moments = sorted({(begin, end) for _, _, begin, end in shown}, key=lambda times: (times[0], times[1] or length))
    names = {times: f"t{number}" for number, times in enumerate(moments)}
    style = [".was{visibility:hidden}"]
    style += [keyframes(name, begin, end, length) for (begin, end), name in names.items()]
    style += [f".{name}{{animation:{name} {length:.2f}s step-end infinite}}" for name in names.values()]
    style.append("@media (prefers-reduced-motion:reduce){text{animation:none!important}}")
    texts = "\n".join(
        f'<text class="{names[begin, end]}{"" if end is None else " was"}" x="12" y="{12 + LINE * (row + 0.75):.1f}" '
        f'xml:space="preserve">{escape(text)}</text>' for row, text, begin, end in shown)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}">\n'
            "<style>\n" + "\n".join(style) + "\n</style>\n"
            '<rect width="100%" height="100%" rx="6" fill="#12171c"/>\n'
            f'<g font-family="monospace" font-size="14" fill="#d7dde3">\n{texts}\n</g>\n</svg>\n')
