"""Tables of measurements, their summary and the list of targets, in Markdown."""

import collections

Target = collections.namedtuple("Target", "quantity value unit due beyond smaller_is_better")


class Report:
    """Prints tables as they come, and keeps the targets and the summary for the end."""

    def __init__(self):
        self._targets = []
        self._summary = []
        self._lines = []

    def text(self):
        """The summary, and then everything that has been printed."""
        lines = ["## Summary\n", *self._summary, "\n## Tables\n", *self._lines]
        return "".join(f"{line}\n" for line in lines)

    def summarize(self, sentence):
        """Adds a line to the summary."""
        self._summary.append(f"- {sentence}")

    def line(self, line=""):
        self._lines.append(line)
        print(line, flush=True)

    def table(self, title, head, rows):
        """Prints a table. The first column is text; the others are numbers or texts."""
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
        """Prints all targets with their verdicts, and the summary. Returns how many targets fall short."""
        verdicts = [(target, _verdict(target)) for target in self._targets]
        self.table("Against the targets", ["quantity", "measured", "due", "beyond", "verdict"], [
            [target.quantity, f"{number(target.value)}{target.unit}", _limit(target, target.due),
             _limit(target, target.beyond), verdict]
            for target, verdict in verdicts])
        short = [target for target, verdict in verdicts if verdict == "short"]
        beyond = sum(1 for _, verdict in verdicts if verdict == "beyond")
        count = f"Of {len(verdicts)} targets, {len(verdicts) - len(short)} are reached, and {beyond} of these go beyond what is due."
        self.line(f"{count}\n")
        self.summarize(f"{count} The last table lists them.")
        for target in short:
            self.line(f"- falls short: {target.quantity}: {number(target.value)}{target.unit}, "
                      f"due {_limit(target, target.due)}")
        print("\n### Summary\n", *self._summary, sep="\n")
        return len(short)


def number(value):
    """A number with three significant digits, or a text unchanged."""
    if not isinstance(value, float):
        return str(value)
    if value != 0 and abs(value) < 100:
        return f"{value:.2f}" if abs(value) < 10 else f"{value:.1f}"
    return f"{value:,.0f}"


def spread(middle, low, high):
    """Half the distance between the quartiles, in percent of the median."""
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
