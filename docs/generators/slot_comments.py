"""A filter for Doxygen: gives the slots of kernel families the words of IKernel and IKernelFacts, which they carry
out, and what all families have in one form one comment.

usage: slot_comments.py HEADER

What has a comment of its own keeps it. Lines keep their numbers.
"""

import re
import sys

SLOTS = {"CheckConfig": "CheckConfig", "Configure": "Config", "InferOutputShapes": "InferOutputShapes",
         "CheckInputs": "CheckInputs", "CheckOutputs": "CheckOutputs", "Forward": "Forward", "ResetState": "ResetState"}
FACTS = ("needs", "input_use", "epilogue", "refusals", "input_refusals", "pass_refusals", "differences")
FACT = re.compile(r"^  (?:(?:runtime::|std::)?\w+) (" + "|".join(FACTS) + r")\(")
SLOT = re.compile(r"^  (?:int|bool|Shapes) (" + "|".join(SLOTS) + r")\(")
# What every family has besides, in one form.
OTHERS = (
    (re.compile(r"^struct \w+Row : KernelRow \{"), "One kernel of the family."),
    (re.compile(r"^  std::string GetKernelName\("), "The class name and registry key."),
    (re.compile(r"^  static constexpr size_t kLeastInputs = "), "Inputs without which a pass is refused."),
    (re.compile(r"^  static constexpr bool kTakesAnyInputs = "), "Whether a pass gets whatever inputs there are."),
    (re.compile(r"^  using Family = "), "The class that carries out the slots."),
    (re.compile(r"^  using Row = "), "What tells the kernels of the family apart."),
    (re.compile(r"^  using Params = "), "What a kernel keeps of its description."),
    (re.compile(r"^  using Description = "), "A kernel's view of its description."),
    (re.compile(r"^  using TensorPointer = "), "A tensor, or none."),
    (re.compile(r"^  std::shared_ptr<runtime::IKernel> copy_for\("), "@copydoc marlo::runtime::IKernelCopy::copy_for"),
    (re.compile(r"^  void begin_own_state\("), "@copydoc marlo::kernel::KernelFamily::begin_own_state"),
    (re.compile(r"^  (?:explicit )?\w+\(const \w*Row&"), "The family as this row has it, not configured yet."),
)


def comment_of(line):
    slot = SLOT.match(line)
    if slot:
        return f"@copydoc marlo::runtime::IKernel::{SLOTS[slot[1]]}"
    fact = FACT.match(line)
    if fact:
        return f"@copydoc marlo::runtime::IKernelFacts::{fact[1]}"
    return next((text for pattern, text in OTHERS if pattern.match(line)), None)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    before = ""
    with open(sys.argv[1], encoding="ascii") as lines:
        for line in lines:
            comment = comment_of(line)
            if comment and "///" not in before:
                line = f"/** {comment} */ {line.lstrip()}"
            sys.stdout.write(line)
            before = line


if __name__ == "__main__":
    main()
