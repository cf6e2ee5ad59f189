"""A client of linux-pe's door: lines over a Unix socket, answered in JSON (docs/door.md).

A real product's EVPN agent shares memory with the switch's agent, or speaks to it by its own protocol.
"""

import json
import socket


class DoorLost(Exception):
    """The other side has ended, or does not answer."""


class Session:
    """One that is asked, and answers."""
    LINES_AT_ONCE = 50  # so that neither side waits for the other to read

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(10)
        try:
            self._socket.connect(path)
            self._file = self._socket.makefile("r")
            self._answer()  # that it is ready
        except OSError as error:
            self._socket.close()
            raise DoorLost(str(error)) from error
        self.ask(["json on"])

    def ask(self, lines):
        """What each of the lines is answered, and what was wrong with them."""
        values = []
        for first in range(0, len(lines), self.LINES_AT_ONCE):
            some = lines[first:first + self.LINES_AT_ONCE]
            try:
                self._socket.sendall("".join(f"{line}\n" for line in some).encode())
                for _ in some:
                    values += self._answer()
            except OSError as error:
                raise DoorLost(str(error)) from error
        return values

    def _answer(self):
        values = []
        for line in self._file:
            if line.startswith(". "):
                return values
            if line.startswith("{"):
                values.append(json.loads(line))
        raise DoorLost("the session has ended")

    def standing(self, roots):
        """What stands below the roots: paths to values."""
        return {each["path"]: text_of(each) for each in self.ask([f"show {root}" for root in roots])
                if "path" in each and "key" in each and "class" not in each}

    def close(self):
        self._file.close()
        self._socket.close()


class Watch(Session):
    """One that tells of changes below a path, until it is closed."""

    def __init__(self, path, watched):
        super().__init__(path)
        self._socket.sendall(f"watch {watched}\n".encode())
        self._socket.setblocking(False)
        self._rest = b""

    def fileno(self):
        return self._socket.fileno()

    def changes(self):
        """Those that are to be read: paths to values, or to None for what has gone. Raises DoorLost
        also when there were more than were kept."""
        try:
            self._rest += self._socket.recv(1 << 16) or self._ended()
        except BlockingIOError:
            return {}
        except OSError as error:
            raise DoorLost(str(error)) from error
        *lines, self._rest = self._rest.split(b"\n")
        changed = {}
        for line in lines:
            if line.startswith(b". "):  # an answer of its own: it watches no more
                raise DoorLost("the watch has ended")
            told = json.loads(line) if line.startswith(b"{") else {}
            if "missed" in told:
                raise DoorLost("more has changed than was kept")
            if "there" in told:
                changed[told["path"]] = text_of(told) if told["there"] else None
        return changed

    @staticmethod
    def _ended():
        raise DoorLost("the session has ended")


def text_of(told):
    value = told.get("value", "")
    return value if isinstance(value, str) else json.dumps(value)


class Door:
    """The adapter's: the inputs that it keeps, as they stand, and the hosts that the switch has heard."""
    KEPT = ("evpnStatus", "vlanStatusDir", "floodSetOutput", "hostOutput", "lfibStatus",
            "forwardingInput", "coreConfig")
    LEARNED = "softSwitch.learnedHost"
    LOCAL = "forwardingInput.localHost"  # which the switch writes, too

    def __init__(self, path):
        self._sessions = []
        try:
            self.watches = [self._opened(Watch(path, each)) for each in (self.LEARNED, self.LOCAL)]
            self._session = self._opened(Session(path))
            self.there = self._session.standing(self.KEPT)
            self._learned = self._session.standing([self.LEARNED])
        except DoorLost:
            self.close()
            raise

    def _opened(self, session):
        self._sessions.append(session)
        return session

    def hosts(self):
        """The port that each was heard on, by MAC address and VLAN."""
        split = ((path[len(self.LEARNED) + 1:-1].split(","), port)
                 for path, port in self._learned.items())
        return {(mac, int(vlan)): port for (mac, vlan), port in split}

    def take(self, watch):
        """Takes what one of the watches has to tell."""
        to = self._learned if watch is self.watches[0] else self.there
        for path, value in watch.changes().items():
            if value is None:
                to.pop(path, None)
            else:
                to[path] = value

    def write(self, lines):
        """Raises ValueError, with what the other side says, for lines that it does not take; what stands
        is read anew then."""
        answers = self._session.ask(lines)
        wrong = [each for each in answers if each.get("status", "ok") != "ok"]
        for line in lines:
            word, path, *value = line.split(" ", 2)
            if path.partition(".")[0] not in self.KEPT:
                continue
            if word == "set":
                self.there[path] = "".join(value)
            else:
                self.there.pop(path, None)
        if wrong:
            self.there = self._session.standing(self.KEPT)
            why = "; ".join(each["error"] for each in answers if "error" in each)
            raise ValueError(f"linux-pe does not take {len(wrong)} of {len(lines)} lines: {why}")

    def close(self):
        for each in self._sessions:
            each.close()
