"""Runs inside gdb. Overwrites words of sets, one at a time, and looks at the sets each time."""

import random
import re

import gdb

WORDS = 200
PYTHON_ERROR = re.compile(r"Python Exception|Traceback|Error occurred in Python")
SETS = ("plain", "full", "holes", "modes", "pages")
ITERATORS = ("onItem", "atEnd", "stale", "afterRemoved")


def objects_of(name):
    """Returns address and size of the objects that make up a set."""
    value = gdb.parse_and_eval(name)
    data = value["sharedData"]
    store = data["entities"]
    head = store["head"]
    record = head["slots"][0]["value"]
    tree = data["dataMap"]["_M_t"]["_M_impl"]["_M_header"]
    pointers = [value.address, data, store, head, store["tail"], record, tree["_M_parent"], tree["_M_left"]]
    pointers += [record["nestedEntFullPath"]["data"]["block"], record["hlVpArray"]["data"]["block"]]
    for pointer in (record["selectedEntityInfo"], record["highlightSegmentArray"], record["subselPathArray"]):
        if pointer:
            pointers.append(pointer)
    objects = [(int(pointer), pointer.type.strip_typedefs().target().sizeof) for pointer in pointers]
    objects.append((int(head["slots"]), 96))
    if record["selectedEntityInfo"]:
        objects.append((int(record["selectedEntityInfo"]["elasticData"]), 20))
    return objects


def output_of(command):
    try:
        return gdb.execute(command, False, True)
    except gdb.error as error:
        return str(error)


def look(name):
    """Returns what gdb prints of a set, and of the iterators."""
    commands = ["print " + name, "print *{}.sharedData->entities".format(name), "info kvset " + name]
    commands += ["print " + iterator for iterator in ITERATORS]
    return "".join(output_of(command) for command in commands)


def damaged(chance, addresses):
    """Returns another value for a word."""
    values = [0, 1, 8, (1 << 64) - 1, 1 << 63, chance.getrandbits(64), chance.getrandbits(47), chance.getrandbits(31)]
    return chance.choice(values + [chance.choice(addresses)])


def main():
    chance = random.Random(7)
    inferior = gdb.selected_inferior()
    objects = {name: objects_of(name) for name in SETS}
    addresses = [address for each in objects.values() for address, _ in each]
    gdb.execute("set print elements 10")
    for _ in range(WORDS):
        name = chance.choice(SETS)
        address, size = chance.choice(objects[name])
        place = address + chance.randrange(0, max(size - 7, 1), 4)
        kept = bytes(inferior.read_memory(place, 8))
        inferior.write_memory(place, damaged(chance, addresses).to_bytes(8, "little"))
        seen = look(name)
        if PYTHON_ERROR.search(seen):
            print("damage at {:#x}: {}".format(place, seen))
        inferior.write_memory(place, kept)
    print("{} words were damaged".format(WORDS))


main()
