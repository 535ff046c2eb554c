"""The service manager as the daemon sees it: a socket that takes what it is told."""
import socket
import time


class NotifySocket:
    """Collects the messages with the time at which each was read."""

    def __init__(self, lab):
        self._path = lab.folder / "notify"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(self._path))
        self._socket.setblocking(False)
        lab.on_close(self._socket.close)
        self.messages = []

    def environment(self, watchdog_seconds=0):
        """What the daemon is started with."""
        variables = {"NOTIFY_SOCKET": str(self._path)}
        if watchdog_seconds:
            variables["WATCHDOG_USEC"] = str(watchdog_seconds * 1_000_000)
        return [f"{name}={value}" for name, value in variables.items()]

    def texts(self):
        """All messages so far."""
        while True:
            try:
                self.messages.append((time.monotonic(), self._socket.recv(4096).decode()))
            except BlockingIOError:
                return [text for _, text in self.messages]

    def forget(self):
        self.texts()
        self.messages.clear()
