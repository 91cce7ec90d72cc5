#!/usr/bin/python3
"""Reads a Prometheus text exposition on stdin with the Python client's own
parser and prints what it understood, one sample a line, sorted:
    FAMILY TYPE SAMPLE {label=value,...} VALUE
Exits 1 with the parser's complaint when the text does not parse."""
import sys

from prometheus_client.parser import text_string_to_metric_families

text = sys.stdin.read()
try:
    lines = []
    for family in text_string_to_metric_families(text):
        for s in family.samples:
            labels = ",".join(f"{k}={v}" for k, v in sorted(s.labels.items()))
            lines.append(f"{family.name} {family.type} {s.name} {{{labels}}} {s.value:g}")
except Exception as e:  # the parser raises ValueError and others
    print(f"parse error: {e}", file=sys.stderr)
    sys.exit(1)
print("\n".join(sorted(lines)))
