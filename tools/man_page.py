"""Writes the manual page of the tool from what its --help says.

usage: man_page.py TOOL OUTPUT.gz

The page has what `TOOL --help` prints and, for every subcommand that it lists, what `TOOL COMMAND --help`
prints. A section of the help is a line that ends in a colon, followed by indented lines.
"""

import gzip
import re
import subprocess
import sys

# Sections whose entries are a term and its meaning; in the others lines stay as they are.
TERMS = ("Options", "Positionals", "Operations", "Subcommands")
ENTRY = re.compile(r"^ {2}(\S.*?)(?: {2,}(\S.*))?$")


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def escape(text):
    """Text for troff: no control lines, and hyphens that can be copied."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("~", "\\(ti").replace("^", "\\(ha")
    return "\\&" + text if text.startswith((".", "'")) else text


def sections(help_text):
    """Yields (title, lines): the summary and each run of free text under "", the others under their titles."""
    title, lines = "", []
    for line in help_text.rstrip("\n").split("\n"):
        heading = re.match(r"^(Options|Positionals|Operations|Subcommands|Examples):$", line)
        usage = re.match(r"^Usage: (.*)$", line)
        leaves = title and line and not line.startswith(" ")
        if heading or usage or leaves:
            yield title, lines
            title, lines = (heading[1], []) if heading else ("Usage", [usage[1]]) if usage else ("", [line])
        else:
            lines.append(line)
    yield title, lines


def terms(lines):
    """The entries of a section of terms, as [term, meaning]."""
    entries = []
    for line in lines:
        match = ENTRY.match(line)
        if match:
            entries.append([match[1], match[2] or ""])
        elif line.strip() and entries:
            entries[-1][1] = (entries[-1][1] + " " + line.strip()).strip()
    return entries


def free_text(lines):
    """Paragraphs; runs of indented lines keep their breaks."""
    output, literal = [], False
    for line in lines:
        indented = line.startswith("  ")
        if indented != literal:
            output.append(".EX" if indented else ".EE")
            literal = indented
        if line.strip():
            output.append(escape(line))
        elif output and output[-1] != ".PP":
            output.append(".PP")
    if literal:
        output.append(".EE")
    while output and output[-1] == ".PP":
        output.pop()
    return output


def term_list(lines):
    output = []
    for term, meaning in terms(lines):
        output += [".TP", f"\\fB{escape(term)}\\fR", escape(meaning)]
    return output


def examples(lines):
    return [".EX", *(escape(line.strip()) for line in lines if line.strip()), ".EE"]


def body(parts, titles):
    """The parts of one help text in their order; `titles` says how a part is headed."""
    output = []
    for title, lines in parts:
        if title in TERMS:
            output += [titles(title), *term_list(lines)]
        elif title == "Examples":
            output += [titles(title), *examples(lines)]
        elif title == "" and any(line.strip() for line in lines):
            output += [titles("Notes"), *free_text(lines)]
    return output


def commands_of(help_text):
    for title, lines in sections(help_text):
        if title == "Subcommands":
            return [term for term, _ in terms(lines)]
    return []


def page(tool):
    top = run(tool, "--help")
    parts = list(sections(top))
    summary = " ".join(parts[0][1]).strip()
    version = run(tool, "--version").strip()
    purpose = re.sub(r"^qrt ", "", summary).rstrip(".")
    output = [
        f'.TH QRT 1 "" "{version}" "User Commands"',
        ".SH NAME", f"qrt \\- {escape(purpose)}",
        ".SH SYNOPSIS", "\\fBqrt\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR...] [\\fIFILE\\fR...]",
        ".SH DESCRIPTION", escape(summary),
    ]
    output += body(parts[1:], lambda title: f".SH {'COMMANDS' if title == 'Subcommands' else title.upper()}")
    for command in commands_of(top):
        command_parts = list(sections(run(tool, command, "--help")))
        usage = next(lines[0] for title, lines in command_parts if title == "Usage")
        output += [f'.SH "QRT {command.upper()}"', escape(" ".join(command_parts[0][1]).strip()) + ".",
                   ".PP", f"\\fB{escape(usage)}\\fR"]
        output += body(command_parts[1:], lambda title: f".SS {title}")
    return "\n".join(output) + "\n"


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    tool, path = sys.argv[1:]
    # Compressed as Debian wants it: hard, and without a time, so that each build gives the same bytes.
    with open(path, "wb") as file:
        file.write(gzip.compress(page(tool).encode("ascii"), 9, mtime=0))


if __name__ == "__main__":
    main()
