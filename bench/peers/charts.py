"""Bar charts as SVG, readable on light and dark background."""

from html import escape

STYLE = """<style>
text { font: 13px sans-serif; fill: #1f2328 }
.title { font-weight: bold } .note { font-size: 11px }
.bar { fill: #8b949e } .ours { fill: #0969da } .floor { stroke: #1f2328; stroke-dasharray: 3 3 }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3 } .bar { fill: #6e7681 } .ours { fill: #4493f8 } .floor { stroke: #e6edf3 }
}
</style>"""

LEFT, WIDTH, RIGHT, LINE = 120, 400, 110, 24


def bars(title, note, entries, floor=None):
    """entries: (name, value, label). A floor is a value at which a dashed line stands."""
    largest = max([value for _, value, _ in entries] + ([floor] if floor else []))
    scale = WIDTH / largest
    height = 52 + LINE * len(entries)
    total = LEFT + WIDTH + RIGHT
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {total} {height}" width="{total}" '
             f'height="{height}" role="img" aria-label="{escape(title)}">', STYLE,
             f'<text class="title" x="8" y="18">{escape(title)}</text>',
             f'<text class="note" x="8" y="35">{escape(note)}</text>']
    for number, (name, value, label) in enumerate(entries):
        top = 46 + LINE * number
        kind = "ours" if name.startswith("ostrel") else "bar"
        lines += [f'<text x="{LEFT - 8}" y="{top + 13}" text-anchor="end">{escape(name)}</text>',
                  f'<rect class="{kind}" x="{LEFT}" y="{top}" width="{max(value * scale, 1):.1f}" height="16"/>',
                  f'<text x="{LEFT + value * scale + 6:.1f}" y="{top + 13}">{escape(label)}</text>']
    if floor:
        at = LEFT + floor * scale
        lines.append(f'<line class="floor" x1="{at:.1f}" x2="{at:.1f}" y1="42" y2="{height - 6}"/>')
    return "\n".join([*lines, "</svg>", ""])
