# SPDX-License-Identifier: MIT
"""Reads and writes text databases of brixlib without brixlib.

    textdatabase.py read FILE     a line of JSON for the head and one for each record go to stdout
    textdatabase.py write FILE    writes a database of the records below

In a line of JSON, fields are lists of texts under their names, and "ok" tells whether the signature
fits.
"""
import hashlib
import json
import sys

SPACES = "\t\n\v\f\r \x85\xa0\u1680\u2028\u2029\u202f\u205f\u3000" + "".join(
    map(chr, range(0x2000, 0x200B)))

RECORDS = [
    ("chain", [("name", ["cyan"]), ("level", ["12"]), ("note", ["ż \u20ac \U0001F5A8"])]),
    ("chain", [("name", ["magenta"]), ("tags", ["a", "b = c", "#d"]), ("empty", [""])]),
    ("old", [("name", ["yellow"]), ("level", ["1,5"]), ("_cultureinfo", ["it-IT"])]),
]


def low_bytes(text):
    units = text.encode("utf-16-le", "surrogatepass")
    return units[::2]


def chain(texts):
    state = hashlib.sha256(b"").hexdigest()
    for text in texts:
        state = hashlib.sha256(state.encode() + low_bytes(text)).hexdigest()
    return state


def old(texts):
    return hashlib.sha1(low_bytes(";".join([""] + texts))).hexdigest()


def signature_of(fields, method):
    texts = [text for name, values in fields if name != "_signature" for text in values]
    return {"chain": chain, "old": old}[method](texts)


def field_lines(data):
    """The name and value of each line that has both."""
    for raw in data.split(b"\n"):
        line = raw.decode("utf-8", "replace").strip(SPACES)
        if line.startswith("#") or "=" not in line:
            continue
        left, value = line.split("=", 1)
        name = left.split(".", 1)[0].strip(SPACES)
        if name:
            yield name, value.strip(SPACES)


def records_of(data, key):
    """The fields of each record, in their order; removed records are left out."""
    record = None
    for name, value in field_lines(data):
        if name == key:
            if record:
                yield record
            record = None if value.startswith("$") else {name: [value]}
        elif record is not None:
            record.setdefault(name, []).append(value)
    if record:
        yield record


def checked(record):
    signature = record.get("_signature", [""])[0]
    method = "old" if len(signature) < 41 else "chain"
    ok = signature != "" and signature == signature_of(list(record.items()), method)
    return {"ok": ok, "fields": record}


def read(path):
    with open(path, "rb") as file:
        data = file.read()
    head = next(records_of(data, "dbkey"))
    print(json.dumps(checked(head)))
    for record in records_of(data, head["dbkey"][0]):
        print(json.dumps(checked(record)))


def lines_of(fields, method):
    fields = fields + [("_signature", [signature_of(fields, method)])]
    for name, values in fields:
        for index, value in enumerate(values):
            yield f"{name} = {value}" if len(values) == 1 else f"{name}.{index} = {value}"


def write(path):
    password = hashlib.sha1(b"secret").hexdigest()
    head = [("dbkey", ["name"]), ("dbowner", ["ada"]), ("dbpasswd", [password]),
            ("dbgrants", ["readonly"]), ("dbcultureinfo", ["en-US"]), ("dbversion", ["7"])]
    lines = ["# Written by hand", ""] + list(lines_of(head, "chain")) + ["dbkey = !", ""]
    for method, fields in RECORDS:
        lines += [""] + list(lines_of(fields, method))
    with open(path, "wb") as file:
        file.write("\n".join(lines).encode() + b"\n")


if __name__ == "__main__":
    {"read": read, "write": write}[sys.argv[1]](sys.argv[2])
