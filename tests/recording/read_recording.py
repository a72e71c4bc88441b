# Reads a recording with the JSON parser of Python, which shares nothing with the recorder. Prints the values of one name in their
# order, then the last line's type:  read_recording.py FILE NAME
import json
import sys

values = []
last = None
time = -1.0
with open(sys.argv[1], encoding="utf-8") as lines:
    for number, line in enumerate(lines):
        entry = json.loads(line)
        assert line.endswith("\n") and isinstance(entry, dict), number
        assert entry["t"] >= time, number
        time = entry["t"]
        last = entry["type"]
        if number < 2:
            assert last == ("recording", "state")[number], last
        for pair in entry.get("values", []) if last in ("update", "publish") else []:
            if pair[0] == sys.argv[2]:
                values.append("i:%d" % pair[1] if pair[2:] == ["integer"] else repr(pair[1]))
print(" ".join(values), last)
