# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors
"""Runs inside gdb: prints objects of the program Objects.cpp and compares the texts.

`mode` is set before: "run" stops the program, prints and writes a core file; "core" prints from that file; "plain"
prints objects of whose classes the program has no debug information.
"""

import os
import re

import gdb

ADDRESS = "0x[0-9a-f]+"
CREATOR = "Tresk::FunctionalCreator, strong 3, weak 6"

EXPECTED = [
    # Pointers: what they are, their counts, the dynamic type.
    ("creator", r"StrongPtr to %s = \{get\(\) = %s\}" % (CREATOR, ADDRESS)),
    ("weak", r"WeakPtr to %s = \{get\(\) = %s\}" % (CREATOR, ADDRESS)),
    ("another", r"StrongPtr, not of its type, to %s" % CREATOR),
    ("empty", r"StrongPtr, empty"),
    ("expired", r"WeakPtr, expired, weak 1"),
    ("onStack", r"WeakPtr to Tresk::FunctionalCreator, strong 1, weak 3, not owned yet = \{get\(\) = %s\}" % ADDRESS),
    ("fieldPtr", r"StrongPtr to Tresk::Field, strong 1, weak \d+ = \{get\(\) = %s\}" % ADDRESS),
    # Memory that is no pointer.
    ("nothing", r".*StrongPtr, empty"),
    ("oddPointer", r".*<unreadable>"),
    ("wildPointer", r".*<unreadable>"),
    # Sizes and indices.
    ("size", r"128x64x3"),
    ("noSize", r"rank 0"),
    ("wildSize", r".*<unreadable>"),
    ("index", r"\(7, 5, 1\)"),
    # Arrays: by their own type and by their bases; views; elements of several numbers.
    ("array", r".*Tresk::MemArray<2, double> of 3x2 = \{0.5, 1.5, 2.5, 10.5, 11.5, 12.5\}"),
    ("base", r".*Tresk::MemArray<2, double> of 3x2 = \{0.5, 1.5, 2.5, 10.5, 11.5, 12.5\}"),
    ("ranked", r".*Tresk::MemArray<2, double> of 3x2 = \{0.5, 1.5, 2.5, 10.5, 11.5, 12.5\}"),
    ("slice", r".*Tresk::MemArray<1, double> of 3 = \{10.5, 11.5, 12.5\}"),
    ("vectors", r".*Tresk::MemArray<1, Quorvel::FixedArray<double, 3> > of 2 = \{\(1, 2, 3\), \(4, 5, 6\)\}"),
    ("component", r".*Tresk::MemArray<1, double> of 2 = \{2, 5\}"),
    ("large", r"Tresk::MemArray<1, unsigned int> of 1000 = \{(0, ){7}0\.\.\.\}"),
    ("regular", r".*Tresk::UniformCartesianArray, which computes its elements"),
    ("wildArray", r".*<unreadable>"),
    # Fields.
    (
        "field",
        r".*field of 6 fragments, 7 in the collection = \{"
        r'\["day \\"1\\""\] = not held, Tresk::FunctionalCreator, '
        r'\["day 2"\] = held, Tresk::FunctionalCreator with Tresk::MemArray<2, double>, '
        r'\["Tag f\u00fcnf"\] = not held, Tresk::FunctionalCreator, '
        r'\["no creator"\] = no creator, '
        r'\["kept"\] = held, Tresk::CreativeArray with Tresk::MemArray<1, unsigned int>, '
        r'\["running"\] = in production, Tresk::AsynchronCreator\}',
    ),
    ("unnamed", r"field of 1 fragment, 1 in the collection = \{\[0\] = not held, Tresk::FunctionalCreator\}"),
    ("wildField", r".*<unreadable>"),
    ("fragment", r'.*fragment "Tag f\u00fcnf", number 3'),
]

# What is known without the members of classes.
EXPECTED_PLAIN = [
    ("creator", r"StrongPtr to %s = \{get\(\) = %s\}" % (CREATOR, ADDRESS)),
    ("size", r"128x64x3"),
    ("data", r"StrongPtr to Tresk::MemArray<2, double>, strong 2, weak \d+ = \{get\(\) = %s\}" % ADDRESS),
    ("base", r".*Tresk::MemArray<2, double>( of 3x2 = \{.*\}|, <no debug information>)"),
    ("field", r".*field( of 6 fragments.*|, <no debug information>)"),
    ("oddPointer", r".*<unreadable>"),
]


def check(expected):
    n_wrong = 0
    for expression, pattern in expected:
        try:
            text = gdb.execute("output " + expression, to_string=True)
        except Exception as error:
            text = "an exception: %s" % error
        # A warning of gdb that it finds no debug information may stand before the text.
        text = text.splitlines()[-1] if text else ""
        if not re.fullmatch(pattern, text) or "Python Exception" in text:
            n_wrong += 1
            print("%s\n  prints    %s\n  expected  %s" % (expression, text, pattern))
    if n_wrong == 0:
        print("all %d texts are as expected" % len(expected))


for command in ("pagination off", "width 0", "print elements 8", "print address on", "print repeats unlimited"):
    gdb.execute("set " + command)
core = os.environ["TRESK_CORE"]
if mode == "core":
    gdb.execute("core-file " + core)
    gdb.execute("frame function main")
else:
    gdb.execute("break stopHere")
    gdb.execute("run")
    gdb.execute("up")
    # No printer calls a function of the program.
    gdb.execute("set may-call-functions off")
if mode == "run":
    gdb.execute("generate-core-file " + core)
check(EXPECTED_PLAIN if mode == "plain" else EXPECTED)
if mode == "core":
    os.remove(core)
