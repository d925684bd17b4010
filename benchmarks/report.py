"""Tables of measurements, and the list of what is due, in Markdown."""

import collections

Target = collections.namedtuple("Target", "quantity value unit due beyond smaller_is_better")


class Report:
    """Prints tables as they come, and keeps the targets for the end."""

    def __init__(self):
        self._targets = []
        self._lines = []

    def text(self):
        """All that has been printed."""
        return "".join(f"{line}\n" for line in self._lines)

    def line(self, line=""):
        self._lines.append(line)
        print(line, flush=True)

    def table(self, title, head, rows):
        """Prints a table; the first column is text, the others are numbers, or texts that stand for some."""
        self.line(f"### {title}\n")
        self.line("| " + " | ".join(head) + " |")
        self.line("|---" + "|---:" * (len(head) - 1) + "|")
        for row in rows:
            self.line("| " + " | ".join(number(cell) for cell in row) + " |")
        self.line()

    def at_most(self, quantity, value, due, beyond, unit=""):
        self._targets.append(Target(quantity, value, unit, due, beyond, True))

    def at_least(self, quantity, value, due, beyond, unit=""):
        self._targets.append(Target(quantity, value, unit, due, beyond, False))

    def print_targets(self):
        """Prints all targets with their verdicts; returns how many fall short."""
        verdicts = [(target, _verdict(target)) for target in self._targets]
        self.table("Against the targets", ["quantity", "measured", "due", "beyond", "verdict"], [
            [target.quantity, f"{number(target.value)}{target.unit}", _limit(target, target.due),
             _limit(target, target.beyond), verdict]
            for target, verdict in verdicts])
        short = [target for target, verdict in verdicts if verdict == "short"]
        beyond = sum(1 for _, verdict in verdicts if verdict == "beyond")
        self.line(f"{len(verdicts)} quantities: {len(short)} fall short of what is due, {beyond} go beyond it.\n")
        for target in short:
            self.line(f"- falls short: {target.quantity}: {number(target.value)}{target.unit}, "
                      f"due {_limit(target, target.due)}")
        return len(short)


def number(value):
    """A number with three digits that count; a text as it is."""
    if not isinstance(value, float):
        return str(value)
    if value != 0 and abs(value) < 100:
        return f"{value:.2f}" if abs(value) < 10 else f"{value:.1f}"
    return f"{value:,.0f}"


def spread(middle, low, high):
    """Half the distance of the quartiles, in percent of the median."""
    return f"± {50 * (high - low) / middle:.0f} %" if middle else ""


def _limit(target, limit):
    if limit is None:
        return ""
    return f"{'<=' if target.smaller_is_better else '>='} {limit:g}{target.unit}"


def _verdict(target):
    def reaches(limit):
        return target.value <= limit if target.smaller_is_better else target.value >= limit

    if not reaches(target.due):
        return "short"
    return "beyond" if target.beyond is not None and reaches(target.beyond) else "due"
