#!/usr/bin/env python3
"""Writes the patch files of this folder. Each once crashed or stalled the loader or the
renderer; README.md says how. Run from this folder; the output is the same every time."""

OSC, OUTPUT = 4, 0


def patch(blocks, wires, globals_line=True, first_id=1):
    lines = ['<?xml version="1.0" standalone="no" ?>', "<storables>"]
    if globals_line:
        lines.append('    <GLOBAL ID="0" Param_Polyphony="0.500000" />')
    next_id = first_id
    for slot, kind in blocks:
        lines.append(f'    <BLOCK ID="{next_id}" TYPE="{kind}" X="40" Y="60" POS="{slot}" P1="0.700000" />')
        next_id += 1
    for source, dest, port in wires:
        lines.append(f'    <CONNECTION ID="{next_id}" FROM="{source}" TO="{dest}" INPUTID="{port}" />')
        next_id += 1
    lines.append("</storables>")
    return "\n".join(lines) + "\n"


def write(name, text):
    with open(name, "w", encoding="ascii") as out:
        out.write(text)


# An oscillator in slot 140 into output 139, each output into the one below, down to 0.
write("output_chain_141.vrkx",
      patch([(140, OSC)] + [(s, OUTPUT) for s in range(140)],
            [(140, 139, 0)] + [(s, s - 1, 0) for s in range(139, 0, -1)]))

# A root, 18 layers of two oscillators each fed by both of the layer before, one output:
# 38 blocks, 72 wires, 2^18 paths from the root to the output.
blocks = [(0, OSC)] + [(s, OSC) for s in range(1, 37)] + [(37, OUTPUT)]
wires = [(0, 1, 0), (0, 2, 0)]
for layer in range(17):
    a, b = 1 + 2 * layer, 2 + 2 * layer
    for source in (a, b):
        for dest in (a + 2, b + 2):
            wires.append((source, dest, 0))
wires += [(35, 37, 0), (36, 37, 0)]
write("fan_out_18_pairs.vrkx", patch(blocks, wires))

# Globals that are not numbers, or far outside 0..1.
write("non_finite_globals.vrkx", patch([(0, OSC), (1, OUTPUT)], [(0, 1, 0)]).replace(
    'Param_Polyphony="0.500000"',
    'Param_Polyphony="0.500000" Param_Voice_Transpose="nan" Param_Voice_Bendrange="1e39" '
    'Param_Voice_Portamento="-inf" Param_Reverb_Decay="inf"'))

# No GLOBAL element, and an id at the top of the int range.
write("no_global_huge_id.vrkx", patch([(0, OSC), (1, OUTPUT)], [(0, 1, 0)], globals_line=False,
                                       first_id=2147483646))
