"""The bench's figures as Markdown tables."""

TITLES = {"read1": "one key", "read100": "100 keys in one request", "clients10": "10 clients at once",
          "clients50": "50 clients at once", "connect": "connect and read one key",
          "commit1": "commit of one value", "commit50": "commit of 50 values"}


def table(head, rows):
    return "\n".join(f"| {' | '.join(row)} |" for row in [head, ["---"] * len(head), *rows])


def duration(seconds):
    if seconds >= 1:
        return f"{seconds:.2f} s"
    return f"{seconds * 1e3:.1f} ms" if seconds >= 1e-3 else f"{seconds * 1e6:.1f} us"


def times(ratio):
    return f"{ratio:.2f}" if ratio >= 0.01 else f"{ratio:.3f}"


def by_peer(row):
    return {figure["peer"]: figure for figure in row["figures"]}


def figures_table(result, kind):
    """One line for each operation, one column for each peer: ratio to the floor and time."""
    names = [peer["name"] for peer in result["peers"]]

    def cell(figure):
        return f"{times(figure['ratio'])} ({duration(figure['seconds'])})" if figure else "-"

    return table(["", *names], [[TITLES[row["id"]], *(cell(by_peer(row).get(name)) for name in names)]
                                for row in result[kind]])


def device_table(result):
    if not all("bytes" in figure for row in result["commits"] for figure in row["figures"]):
        return "No file system of its own could be mounted in this run: what reaches the device was not counted."
    rows = [[peer["name"], *(text for row in result["commits"]
                             for figure in [by_peer(row)[peer["name"]]]
                             for text in (f"{figure['bytes']:,.0f}", f"{figure['flushes']:.2f}"))]
            for peer in result["peers"]]
    head = ["", *(f"{TITLES[row['id']]}: {what}" for row in result["commits"] for what in ("bytes", "forced writes"))]
    return table(head, rows)


def sizes_table(result, text, with_floor=False):
    """One line for each peer that was measured, one column for each number of keys."""
    rows = []
    for peer in result["peers"]:
        if peer["name"] == "floor" and not with_floor:
            continue
        cells = [by_peer(row).get(peer["name"]) for row in result["sizes"]]
        if any(cells):
            rows.append([peer["name"], *(text(cell) if cell else "-" for cell in cells)])
    return table(["", *(f"{row['keys']:,} keys" for row in result["sizes"])], rows)


def peers_table(result):
    return table(["", "what it does differently"], [[peer["name"], peer["difference"]] for peer in result["peers"]])


def all_tables(result):
    """The document's parts by the names of their markers."""
    return {
        "peers": peers_table(result),
        "reads": figures_table(result, "reads"),
        "commits": figures_table(result, "commits"),
        "device": device_table(result),
        "start": sizes_table(result, lambda figure: duration(figure["start"])),
        "memory": sizes_table(result, lambda figure: f"{figure['memory'] / 2**20:.1f} MiB"),
        "commit-size": sizes_table(result, lambda figure: f"{times(figure['ratio'])} ({duration(figure['seconds'])})",
                                   with_floor=True),
    }
