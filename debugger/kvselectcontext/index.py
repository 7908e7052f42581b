"""Reads the index of a set's data."""

from .memory import Unreadable


class Index:
    """The entries of a std::multimap, as libstdc++ keeps them: a tree of nodes below a header."""

    def __init__(self, data):
        tree = data.struct.member("dataMap").member("_M_t").member("_M_impl")
        self._memory = data.struct.memory
        self.count = tree.number("_M_node_count")
        self._root = tree.member("_M_header").number("_M_parent")
        self._node = tree.layout.of_member("_M_header")

    def entries(self, most, tell):
        """Yields main id and slot address of the entries in order, at most that many. Tells what is broken."""
        seen = set()
        path = []
        at = self._root
        while at or path:
            while at:
                node = self._read(at, seen, tell)
                if not node:
                    break
                if len(seen) > most:
                    tell("the index has more than {} entries".format(most))
                    return
                path.append(node)
                at = node.number("_M_left")
            if not path:
                return
            node = path.pop()
            try:
                yield self._entry(node)
            except Unreadable:
                tell("the index entry at {:#x} cannot be read".format(node.address))
            at = node.number("_M_right")

    def _read(self, address, seen, tell):
        if address in seen:
            tell("the index reaches the entry at {:#x} twice".format(address))
            return None
        seen.add(address)
        try:
            return self._memory.at(address, self._node)
        except Unreadable:
            tell("the index entry at {:#x} cannot be read".format(address))
            return None

    def _entry(self, node):
        value = node.address + node.layout.size
        return self._memory.number(value, 8), self._memory.number(value + 8, 8)
