"""Tables: on the terminal with times and ratios, on the page in Markdown."""


def number(value):
    """Three digits that count, and thousands as such."""
    if value >= 1000:
        return f"{value:,.0f}".replace(",", " ")
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def ratio_text(spread):
    """A median with the half of its rounds that lie nearest to it."""
    if spread is None:
        return "-"
    if spread.high - spread.low < 0.02 * spread.median:
        return f"{spread.median:.2f}"
    return f"{spread.median:.2f} ({spread.low:.2f}-{spread.high:.2f})"


def value_text(case, variant):
    return f"{number(variant.spread.median)} {case.unit}"


def terminal(cases):
    """One line for each case: the library's median, and its ratio to floor and peers."""
    lines, target = [], None
    for case in cases:
        if case.target != target:
            target = case.target
            lines.append(f"\n{target}: library, and library / other (quartiles)")
        library = case.library()
        if library is None:
            lines.append(f"  {case.text}: nothing was measured")
            continue
        others = [v for v in case.variants if v.role != "library"]
        ratios = [f"{v.name} {ratio_text(case.ratio(v))}" for v in others if v.samples]
        left = [f"{v.name} left out" for v in others if not v.samples]
        lines.append(f"  {case.text:42} {value_text(case, library):>14}   "
                     + "   ".join(ratios + left))
    reasons = {f"{v.name}: {v.left_out}" for c in cases for v in c.variants if v.left_out}
    return "\n".join(lines + [f"left out: {reason}" for reason in sorted(reasons)])


def markdown(cases):
    """A table of one target: a row for each case, the ratio to the floor and to the peers."""
    lines = ["| case | library | / floor | / others |", "|---|---|---|---|"]
    for case in cases:
        library = case.library()
        if library is None:
            continue
        floors = [v for v in case.variants if v.role == "floor"]
        peers = [v for v in case.variants if v.role == "peer" and v.samples]
        floor = ", ".join(ratio_text(case.ratio(v)) + ("" if v.name == "floor" else f" {v.name}")
                          for v in floors)
        others = []
        for peer in peers:
            ratio = case.ratio(peer)
            if ratio is not None:
                others.append(f"{peer.name} {ratio.median:.2f}")
        lines.append(f"| {case.text} | {value_text(case, library)} | {floor} | {', '.join(others)} |")
    return "\n".join(lines)
