"""Writes the bash completion of the tool from what its --help says.

usage: bash_completion.py TOOL OUTPUT
"""

import re
import sys

from man_page import commands_of, run, sections, terms

OPTION = re.compile(r"(?<![\w-])(--?[a-z][a-z-]*)")

# What stands behind an option that takes one of few words, by the option.
WORDS = {
    "--color": "rgb bgr gray",
    "--by": "layer kind kernel",
    "--sort": "order time",
    "--isa": "portable sse avx fma avx2 avx512",
    "--round": "truncate nearest",
    "--kind": "model network networks config configs",
    "--flip": "horizontal vertical",
    "--rotate": "90 180 270",
}

SCRIPT = """# bash completion of qrt

_qrt() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} options=
  COMPREPLY=()
  if [[ $COMP_CWORD -eq 1 ]]; then
    COMPREPLY=($(compgen -W "{commands} --help --version" -- "$word"))
    return
  fi
  case $before in
{values}
  esac
  case ${{COMP_WORDS[1]}} in
{options}
    help) COMPREPLY=($(compgen -W "{commands}" -- "$word")); return ;;
    *) return ;;
  esac
  if [[ $word == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$word"))
  elif [[ ${{COMP_WORDS[1]}} == kernels ]]; then
    COMPREPLY=($(compgen -W "$("${{COMP_WORDS[0]}}" kernels 2>/dev/null | cut -d' ' -f1)" -- "$word"))
  fi
}}

complete -o default -F _qrt qrt
"""


def options_of(help_text):
    found = []
    for title, lines in sections(help_text):
        if title in ("Options", "Operations"):
            for term, _ in terms(lines):
                found += [name for name in OPTION.findall(term) if name.startswith("--")]
    return found


def script(tool):
    commands = commands_of(run(tool, "--help"))
    options = {command: options_of(run(tool, command, "--help")) for command in commands if command != "help"}
    known = {name for names in options.values() for name in names}
    unknown = set(WORDS) - known
    if unknown:
        sys.exit(f"{__file__}: the tool has no option {', '.join(sorted(unknown))}")
    return SCRIPT.format(
        commands=" ".join(commands),
        values="\n".join(f'    {name}) COMPREPLY=($(compgen -W "{words}" -- "$word")); return ;;'
                         for name, words in WORDS.items()),
        options="\n".join(f'    {command}) options="{" ".join(names)}" ;;' for command, names in options.items()))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    tool, path = sys.argv[1:]
    with open(path, "w", encoding="ascii") as file:
        file.write(script(tool))


if __name__ == "__main__":
    main()
