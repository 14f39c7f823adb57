"""Runs `qrt read` on the samples of the model that ships, on every instruction set that the machine has, and on bad pictures.

usage: check_read.py ROOT QRT [LAUNCHER...]

Kernels of different instructions may differ in the last bits, so texts are compared and no numbers.
"""

import json
import os
import subprocess
import sys
import tempfile

SETS = ("portable", "sse", "avx", "fma", "avx2", "avx512")
EVERYWHERE = ("libertine.png", "open-sans.png")  # read on each set
USAGE, INPUT, MODEL = 2, 3, 4
# Emulators and sanitizers, where each run takes seconds.
SLOW = "QRT_TEST_LAUNCHER" in os.environ or "ASAN_OPTIONS" in os.environ


class Checks:
    def __init__(self, root, command):
        self.samples = os.path.join(root, "models", "lines", "samples")
        self.command, self.problems, self.count = command, [], 0
        self.digits = os.path.join(root, "models", "digits", "digits.qrtmodel")

    def run(self, *arguments):
        self.count += 1
        return subprocess.run([*self.command, "read", *arguments], capture_output=True, text=True, check=False)

    def expect(self, what, found, expected):
        if found != expected:
            self.problems.append(f"{what}: {found!r} instead of {expected!r}")

    def expect_fault(self, what, code, part, *arguments):
        answer = self.run(*arguments)
        self.expect(f"{what}: exit code", answer.returncode, code)
        self.expect(f"{what}: standard output", answer.stdout, "")
        self.expect(f"{what}: {part!r} in {answer.stderr!r}", part in answer.stderr, True)

    def sample(self, name):
        return os.path.join(self.samples, name)

    def readings(self):
        with open(self.sample("readings.txt"), encoding="ascii") as rows:
            return dict(row.rstrip("\n").split("\t") for row in rows)


def check_samples(checks):
    readings = checks.readings()
    for name, text in readings.items():
        if SLOW and name not in EVERYWHERE:
            continue
        checks.expect(name, checks.run(checks.sample(name)).stdout, text + "\n")
    for isa in SETS:
        for name in EVERYWHERE:
            answer = checks.run(checks.sample(name), "--isa", isa)
            if answer.returncode == USAGE and isa not in ("portable", "sse"):
                print(f"this processor lacks {isa}")
                break
            checks.expect(f"{name}, {isa}", answer.stdout, readings[name] + "\n")


def check_page(checks):
    with open(checks.sample("page.txt"), encoding="ascii") as text:
        expected = text.read().splitlines()
    answer = checks.run(checks.sample("page.jpg"), "--json")
    page = json.loads(answer.stdout)
    checks.expect("lines of the page", len(page["lines"]), len(expected))
    checks.expect("angle of the page", abs(page["angle"] - 4) < 0.3, True)
    right = sum(line["text"] == text for line, text in zip(page["lines"], expected))
    checks.expect("most lines are right", right >= len(expected) // 2, True)
    for line in page["lines"]:
        checks.expect("a character each", len(line["characters"]), len(line["text"]))


def picture_in(folder, name, content):
    path = os.path.join(folder, name)
    with open(path, "wb") as file:
        file.write(content)
    return path


def check_memory(checks, folder):
    """A line of 20,000 columns takes little more memory than a short one."""
    if SLOW:
        return  # emulators and sanitizers have memory of their own

    def most_memory(width):
        bars = b"".join(b"\x20" if x * x % 23 < 7 else b"\xe0" for x in range(width))
        path = picture_in(folder, "bars.pgm", b"P5\n%d 32\n255\n" % width + 32 * bars)
        reader = subprocess.Popen([*checks.command, "read", path, "--line"], stdout=subprocess.PIPE, text=True)
        text = reader.stdout.read()
        _, status, usage = os.wait4(reader.pid, 0)
        checks.expect(f"bars of {width} columns", (status, len(text) > width // 100), (0, True))
        return usage.ru_maxrss // 1024

    short, long = most_memory(400), most_memory(20000)
    checks.expect(f"{long} MB for 20,000 columns, {short} MB for 400", long < short + 48, True)


def check_bad_pictures(checks, folder):
    def picture(name, content):
        return picture_in(folder, name, content)

    def blank(width, height):
        return picture(f"{width}x{height}.pgm", b"P5\n%d %d\n255\n" % (width, height) + b"\x80" * (width * height))

    for width, height in ((1, 1), (20000, 1), (20000, 40)):
        answer = checks.run(blank(width, height))
        checks.expect(f"blank {width}x{height}", (answer.returncode, answer.stdout), (0, ""))
        checks.expect("it is said", "no text was found" in answer.stderr, True)
    strip = picture("strip.pgm", b"P5\n20000 8\n255\n" + b"\x00\xff" * 80000)
    checks.expect_fault("a strip", INPUT, "20000 wide and 8 high", strip, "--line")
    checks.expect_fault("no picture", INPUT, "not a picture", picture("text.png", b"no picture"))
    checks.expect_fault("an empty file", INPUT, "empty.png", picture("empty.png", b""))
    checks.expect_fault("another model", MODEL, "reads no lines", checks.sample("libertine.png"), "--model", checks.digits)
    checks.expect_fault("no model", MODEL, "absent", checks.sample("libertine.png"), "--model", "absent.qrtmodel")


def main():
    checks = Checks(sys.argv[1], sys.argv[3:] + [sys.argv[2]])
    check_samples(checks)
    check_page(checks)
    with tempfile.TemporaryDirectory() as folder:
        check_bad_pictures(checks, folder)
        check_memory(checks, folder)
    print("\n".join(checks.problems))
    print(f"{checks.count} runs, {len(checks.problems)} problems")
    sys.exit(1 if checks.problems else 0)


if __name__ == "__main__":
    main()
