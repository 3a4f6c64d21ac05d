"""Servers on the loopback interface that do everything but answer a request properly. Each is a
function that gets a connection whose request has not been read yet.
"""
import itertools
import socket
import struct
import threading
import time

DONE = b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"
HUGE_HEADER_BYTES = 100_000_000


def listener(backlog=64):
    made = socket.socket()
    made.bind(("127.0.0.1", 0))
    made.listen(backlog)
    return made


def serve(behaviour):
    """The address of a server that treats each connection so, side by side."""
    taken = listener()
    threading.Thread(target=accept_all, args=(taken, behaviour), daemon=True).start()
    return address_of(taken)


def address_of(taken):
    return f"127.0.0.1:{taken.getsockname()[1]}"


def accept_all(taken, behaviour):
    while True:
        connection = taken.accept()[0]
        threading.Thread(target=treat, args=(connection, behaviour), daemon=True).start()


def treat(connection, behaviour):
    try:
        with connection:
            behaviour(connection)
    except OSError:
        pass  # the tool has hung up


def answering(answer):
    """Sends these bytes to whoever asks and hangs up."""
    def answer_once(connection):
        connection.recv(65536)
        connection.sendall(answer)
    return answer_once


def say_nothing(connection):
    while connection.recv(65536):
        pass


def hang_up(_):
    """Its caller closes the connection."""


def reset(connection):
    connection.recv(65536)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def drip(connection, text):
    for byte in text:
        connection.sendall(bytes([byte]))
        time.sleep(1)


def drip_header(connection):
    drip(connection, b"HTTP/1.1 200 OK\r\n" + b"X-Drop: x\r\n" * 100)


def drip_body(connection):
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n")
    drip(connection, b"x" * 1000)


def send_pieces(connection, start, pieces):
    connection.recv(65536)
    connection.sendall(start)
    for piece in pieces:
        connection.sendall(piece)


def endless_body(connection):
    send_pieces(connection, b"HTTP/1.1 200 OK\r\n\r\n", itertools.repeat(b"x" * 65536))


def endless_answers_that_are_none(connection):
    send_pieces(connection, b"", itertools.repeat(b"HTTP/1.1 100 Continue\r\n\r\n" * 1000))


def huge_header(connection):
    send_pieces(connection, b"HTTP/1.1 200 OK\r\nX: ",
                itertools.repeat(b"x" * 100_000, HUGE_HEADER_BYTES // 100_000))


def huge_header_in_lines(connection):
    line = b"X-Line: " + b"x" * 90 + b"\r\n"
    send_pieces(connection, b"HTTP/1.1 200 OK\r\n",
                itertools.repeat(line * 1000, HUGE_HEADER_BYTES // (1000 * len(line))))


def nobody():
    """An address where nothing listens."""
    with listener() as gone:
        return address_of(gone)


def busy():
    """The address of a server that is too busy to take another connection, and what keeps it so."""
    taken = listener(0)
    crowd = [taken]
    for _ in range(4):
        waiting = socket.socket()
        waiting.setblocking(False)
        waiting.connect_ex(taken.getsockname())
        crowd.append(waiting)
    return address_of(taken), crowd
