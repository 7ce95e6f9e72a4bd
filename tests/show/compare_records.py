#!/usr/bin/env python3
"""Compares the records slotag-show --json describes with the bytes the
simulated driver received from slotag -r (as `slotag-sim dump` decodes them),
field by field. Prints one line per compared server, or every difference and
exits with 1."""
import json
import re
import sys

HBA_FIELDS = ["magic", "alt_pm", "domain", "bus", "device", "function", "revision",
              "pm_cap", "header_type", "bus_id"]
SHPC_FIELDS = ["magic", "domain", "bus", "device", "function", "revision", "header_type",
               "bus_id", "class_code", "secondary_bus", "cap_offset", "first_device",
               "slot_count", "slots_available_1", "slots_available_2", "slot_config",
               "sec_bus_config", "hba_count"]
TABLE_FIELDS = ["count", "total_size", "max_hba_count"]
PAIR = re.compile(r'([a-z_0-9@]+)=("[^"]*"|\S+)')


def values(line):
    out = {}
    for name, value in PAIR.findall(line):
        if name.startswith("reserved@"):
            raise SystemExit("a reserved field is not zero: " + line.strip())
        out[name] = value[1:-1] if value.startswith('"') else (
            value if value in ("set", "0") and name == "hba_list" else int(value, 0))
    return out


def parse_dump(text):
    """The last SET_HBA list and SET_SHPC table of the dump."""
    outside, table, shpc, current_list = None, None, None, None
    for line in text.splitlines():
        s = line.strip()
        if s.startswith("request "):
            if "returned 0" not in s:
                raise SystemExit("a request failed: " + s)
            kind = "hba" if "SET_HBA" in s else "shpc"
            if kind == "shpc":
                table = {"controllers": []}
            current_list = None
        elif s.startswith("ShpcInfoTable "):
            table.update(values(s))
        elif s.startswith("ShpcInfo "):
            shpc = values(s.split(":", 1)[1])
            table["controllers"].append(shpc)
        elif s.startswith("HbaInfoList "):
            current_list = {"header": values(s), "records": []}
            if kind == "hba":
                outside = current_list
            else:
                shpc["list"] = current_list
        elif s.startswith("HbaInfo "):
            current_list["records"].append(values(s.split(":", 1)[1]))
        elif s and kind == "shpc" and shpc is not None:
            shpc.update(values(s))
    if outside is None or table is None:
        raise SystemExit("the dump holds no complete registration")
    return outside, table


def compare(name, report, outside, table):
    diffs = []

    def check(where, fields, want, got):
        for f in fields:
            if want.get(f) != got.get(f):
                diffs.append(f"{where} {f}: JSON {want.get(f)!r}, driver {got.get(f)!r}")

    def check_list(where, adapters, lst):
        if len(adapters) != lst["header"]["count"] or len(lst["records"]) != len(adapters):
            diffs.append(f"{where}: JSON {len(adapters)} adapters, driver count "
                         f"{lst['header']['count']} with {len(lst['records'])} records")
        for i, (a, r) in enumerate(zip(adapters, lst["records"]), 1):
            check(f"{where} adapter {i}", HBA_FIELDS, a, r)

    if not report["would_register"] or report["problems"]:
        diffs.append("the report says slotag -r would fail")
    check("table", TABLE_FIELDS, report["table"], table)
    if len(report["controllers"]) != len(table["controllers"]):
        diffs.append(f"JSON {len(report['controllers'])} controllers, driver "
                     f"{len(table['controllers'])}")
    for i, (c, s) in enumerate(zip(report["controllers"], table["controllers"]), 1):
        check(f"controller {i}", SHPC_FIELDS, c, s)
        check_list(f"controller {i}", c["adapters"], s["list"])
    check_list("outside", report["outside"], outside)
    if diffs:
        print(f"{name}: differs")
        for d in diffs:
            print("  " + d)
        return False
    n = sum(len(c["adapters"]) for c in report["controllers"])
    print(f"{name}: {len(report['controllers'])} controllers, {n} adapters under them, "
          f"{len(report['outside'])} outside: every field equal")
    return True


def main():
    name, json_path, dump_path = sys.argv[1:4]
    with open(json_path) as f:
        report = json.load(f)
    with open(dump_path) as f:
        outside, table = parse_dump(f.read())
    sys.exit(0 if compare(name, report, outside, table) else 1)


if __name__ == "__main__":
    main()
