"""The raw baselines: small programs of the build tree, run beside what is measured.

Needs the package of a build tree on the path, as in ``PYTHONPATH=build/perf/python``; the programs are built
in that tree when they are needed.
"""

import pathlib
import socket
import subprocess

import tarn

PACKAGE = pathlib.Path(tarn.__file__).absolute().parent  # not resolved: its Python files are links
BUILD = PACKAGE.parents[1]
LOOPBACK = "127.0.0.1"


class Program:
    """One of the baseline programs, running; it is asked and answers in lines of numbers."""

    def __init__(self, name: str, *arguments: object) -> None:
        command = [str(BUILD / name), *map(str, arguments)]
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    @property
    def pid(self) -> int:
        return self._process.pid

    @staticmethod
    def build(*names: str) -> None:
        """Bring programs up to date."""
        command = ["cmake", "--build", str(BUILD), "--target", *names]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)

    def read(self) -> list[float]:
        line = self._process.stdout.readline()
        if not line:
            raise RuntimeError(f"{self._process.args} ended")
        return [float(word) for word in line.split()]

    def ask(self, question: object = "") -> list[float]:
        self._process.stdin.write(f"{question}\n")
        self._process.stdin.flush()
        return self.read()

    def end(self) -> None:
        self._process.stdin.close()
        self._process.terminate()
        self._process.wait()
        self._process.stdout.close()


def silent_socket(address: str = LOOPBACK) -> socket.socket:
    """A sink that nobody reads: what does not fit its buffer is dropped by the kernel after the whole way
    through the stack, on the sender's account."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind((address, 0))
    return sock


class BareSender:
    """The baseline of sending: the datagrams of some images, in turn, in a bare loop."""

    def __init__(
        self,
        driver: str,
        packet_size: int,
        image_bytes: int,
        port: int,
        *,
        images: int = 1,
        destination: str = LOOPBACK,
    ) -> None:
        arguments = (driver, packet_size, image_bytes, images, destination, port)
        self._program = Program("bare_sender", *arguments)

    def send(self, count: int) -> tuple[float, float]:
        """CPU and wall seconds for so many frames."""
        cpu, wall = self._program.ask(count)
        return cpu, wall

    def end(self) -> None:
        self._program.end()
