#!/usr/bin/env python3
"""An FTP-aware delaying proxy for the latency benchmark.

This machine's kernel has no netem, so latency is made here: every byte of
the control connection and of every data connection is held for DELAY_MS in
each direction before it is passed on. Each chunk is stamped when it arrives
and sent when it falls due, so a transfer's throughput is not capped by the
delay (up to a bounded backlog per direction). Passive replies (227, 229)
are rewritten to listeners of the proxy's own, which forward the data
connection with the same delay to the server's passive port.

Round trips are counted on the control connection: every chunk from the
client that holds at least one complete command line is one (commands sent
together are one round trip), and every data connection the client opens is
one more. Also counted: command lines, and "turns", the command chunks that
came after a reply had reached the client (chunks the client sent back to
back without waiting count once).

A new connection's own handshake is not delayed at the client's end (its
connect() returns at once); the proxy opens its connection to the server one
delay later, so the server's greeting or first data reach the client one
round trip after the connect. A real network adds a handshake round trip to
every connection, which this leaves out for every client alike.

Not supported: active mode (PORT and EPRT are answered 502 by the proxy
itself; with commands pipelined ahead of them that answer may arrive out of
order) and TLS (after AUTH TLS nothing can be read or rewritten).

  latency-proxy.py --server 127.0.0.1:PORT --delay-ms 10 \
      [--port 0] [--port-file F] [--counts F] [--trace F]

The listening port is printed on standard output (and written to
--port-file). --counts names a file rewritten with one line per client
connection and a "total" line, at most every 0.2 s while counts change, at
once on SIGUSR1 and at exit; its "dumps=" field grows with every write, so a
reader can send SIGUSR1 and wait for a newer file. --trace appends every
command chunk (PASS hidden), reply line and data connection with the time
in milliseconds since the start. SIGTERM or SIGINT ends it, closing every
connection; so does --lifetime (seconds).
"""

import argparse
import asyncio
import ipaddress
import os
import re
import signal
import sys
import time

CHUNK = 65536
# Chunks a direction may hold before the reader waits: 256 x 64 KiB is 16 MiB
# in flight, far above what one delay's worth of loopback traffic needs.
BACKLOG_CHUNKS = 256

PASV_RE = re.compile(rb"\((\d+),(\d+),(\d+),(\d+),(\d+),(\d+)\)")
EPSV_RE = re.compile(rb"\(([!-~])\1\1(\d+)\1\)")


class Counts:
    """What one client's control connection did."""

    def __init__(self, number):
        self.number = number
        self.open = True
        self.commands = 0
        self.chunks = 0
        self.turns = 0
        self.data = 0
        self.reply_seen = False  # a reply reached the client since its last command chunk

    @property
    def rtts(self):
        return self.chunks + self.data


class Proxy:
    def __init__(self, args):
        self.args = args
        self.delay = args.delay_ms / 1000.0
        self.server_host, port = args.server.rsplit(":", 1)
        self.server_host = self.server_host.strip("[]")
        self.server_port = int(port)
        self.connections = []
        self.tasks = set()
        self.listeners = set()
        self.dumps = 0
        self.dirty = asyncio.Event()
        self.stop = asyncio.Event()
        self.start = time.monotonic()
        self.trace_file = open(args.trace, "a", buffering=1) if args.trace else None

    # -- bookkeeping -------------------------------------------------------

    def trace(self, conn, text):
        if self.trace_file:
            ms = (time.monotonic() - self.start) * 1000
            self.trace_file.write(f"{ms:10.1f} c{conn.number} {text}\n")

    def spawn(self, coro):
        task = asyncio.ensure_future(coro)
        self.tasks.add(task)
        task.add_done_callback(self.tasks.discard)
        return task

    def write_counts(self):
        if not self.args.counts:
            return
        self.dumps += 1
        lines = [f"# latency-proxy delay_ms={self.args.delay_ms:g}"]
        total = dict(conns=0, open=0, commands=0, chunks=0, turns=0, data=0, rtts=0)
        for c in self.connections:
            lines.append(
                f"conn {c.number} open={int(c.open)} commands={c.commands} chunks={c.chunks} "
                f"turns={c.turns} data={c.data} rtts={c.rtts}"
            )
            total["conns"] += 1
            total["open"] += int(c.open)
            for key in ("commands", "chunks", "turns", "data", "rtts"):
                total[key] += getattr(c, key)
        lines.append(f"total dumps={self.dumps} " + " ".join(f"{k}={v}" for k, v in total.items()))
        temp = self.args.counts + ".tmp"
        with open(temp, "w") as f:
            f.write("\n".join(lines) + "\n")
        os.replace(temp, self.args.counts)

    async def flusher(self):
        while True:
            await self.dirty.wait()
            self.dirty.clear()
            self.write_counts()
            await asyncio.sleep(0.2)

    # -- delayed forwarding ------------------------------------------------

    async def pump(self, reader, writer_ready, transform=None, delivered=None, queue=None):
        """Forwards one direction: stamps each chunk on arrival, writes it when
        due. `transform` (async) may rewrite or hold back bytes; `delivered`
        is told after each write; others may put (due, bytes) into `queue`."""
        loop = asyncio.get_running_loop()
        queue = queue or asyncio.Queue(maxsize=BACKLOG_CHUNKS)
        idle = self.args.idle

        async def put(data):
            await asyncio.wait_for(queue.put((loop.time() + self.delay, data)), idle)

        async def read_side():
            try:
                while True:
                    data = await asyncio.wait_for(reader.read(CHUNK), idle)
                    if not data:
                        break
                    if transform:
                        data = await transform(data, False)
                    if data:
                        await put(data)
                if transform:
                    tail = await transform(b"", True)
                    if tail:
                        await put(tail)
            except (OSError, asyncio.TimeoutError):
                pass
            # The end travels with the same delay as the data before it.
            await put(None)

        async def write_side():
            writer = await writer_ready
            while True:
                due, data = await asyncio.wait_for(queue.get(), idle + self.delay + 1)
                wait = due - loop.time()
                if wait > 0:
                    await asyncio.sleep(wait)
                if data is None:
                    if writer.can_write_eof():
                        writer.write_eof()
                    return
                writer.write(data)
                await asyncio.wait_for(writer.drain(), idle)
                if delivered:
                    delivered(data)

        reading = asyncio.ensure_future(read_side())
        try:
            await write_side()
        finally:
            reading.cancel()
            await asyncio.gather(reading, return_exceptions=True)

    async def connect_upstream(self, port):
        # The server hears of the connection one delay after the client made it.
        await asyncio.sleep(self.delay)
        return await asyncio.wait_for(
            asyncio.open_connection(self.server_host, port), self.args.connect_timeout
        )

    async def join(self, client_writer, upstream, pumps):
        """Runs both directions until both have ended or one has failed, then
        closes both ends."""
        try:
            await asyncio.gather(*pumps)
        except (OSError, asyncio.TimeoutError, asyncio.IncompleteReadError):
            pass
        finally:
            for p in pumps:
                p.cancel()
            await asyncio.gather(*pumps, return_exceptions=True)
            client_writer.close()
            if upstream.done() and not upstream.cancelled() and not upstream.exception():
                upstream.result()[1].close()
            else:
                upstream.cancel()

    # -- data connections --------------------------------------------------

    async def data_listener(self, conn, server_port):
        """A listener for one passive reply: forwards the first connection
        made to it to the server's passive port, then closes."""
        accepted = asyncio.Event()

        def on_client(reader, writer):
            # Tracked, so that an ending proxy cancels it with the rest.
            self.spawn(forward(reader, writer))

        async def forward(reader, writer):
            if accepted.is_set():
                writer.close()
                return
            accepted.set()
            conn.data += 1
            self.dirty.set()
            self.trace(conn, f"data open -> server port {server_port}")
            upstream = asyncio.ensure_future(self.connect_upstream(server_port))

            async def up_writer():
                return (await upstream)[1]

            async def client_writer():
                return writer

            async def down():
                r, _ = await upstream
                await self.pump(r, client_writer())

            pumps = [asyncio.ensure_future(self.pump(reader, up_writer())), asyncio.ensure_future(down())]
            await self.join(writer, upstream, pumps)
            self.trace(conn, "data closed")

        server = await asyncio.start_server(on_client, "127.0.0.1", 0)
        self.listeners.add(server)

        async def expire():
            try:
                await asyncio.wait_for(accepted.wait(), self.args.data_wait)
            except asyncio.TimeoutError:
                pass
            server.close()
            self.listeners.discard(server)

        self.spawn(expire())
        return server.sockets[0].getsockname()[1]

    # -- control connections -----------------------------------------------

    async def on_control(self, reader, writer):
        conn = Counts(len(self.connections) + 1)
        self.connections.append(conn)
        self.dirty.set()
        self.trace(conn, "control open")
        upstream = asyncio.ensure_future(self.connect_upstream(self.server_port))
        loop = asyncio.get_running_loop()
        to_client = asyncio.Queue(maxsize=BACKLOG_CHUNKS)
        held = {"c2s": bytearray(), "s2c": bytearray()}
        tls = False

        def complete_lines(direction, data, at_end):
            buffer = held[direction]
            buffer.extend(data)
            cut = len(buffer) if at_end else buffer.rfind(b"\n") + 1
            lines = bytes(buffer[:cut])
            del buffer[:cut]
            return lines.splitlines(keepends=True)

        async def from_client(data, at_end):
            if tls:
                return data
            lines = complete_lines("c2s", data, at_end)
            if not lines:
                return b""
            kept, shown = [], []
            for line in lines:
                text = line.decode("latin-1").rstrip("\r\n")
                verb = text.split(" ", 1)[0].upper()
                conn.commands += 1
                shown.append("PASS ****" if verb == "PASS" else text)
                if verb in ("PORT", "EPRT"):
                    # Answered here, stamped as if the server had: one round trip.
                    reply = b"502 Active mode is not supported by the latency proxy.\r\n"
                    await asyncio.wait_for(to_client.put((loop.time() + 2 * self.delay, reply)), self.args.idle)
                    continue
                kept.append(line)
            conn.chunks += 1
            if conn.reply_seen:
                conn.turns += 1
                conn.reply_seen = False
            self.dirty.set()
            self.trace(conn, "> " + " | ".join(shown))
            return b"".join(kept)

        async def rewrite(line):
            if line.startswith(b"227 "):
                m = PASV_RE.search(line)
                if m:
                    port = int(m.group(5)) * 256 + int(m.group(6))
                    mine = await self.data_listener(conn, port)
                    new = b"(127,0,0,1,%d,%d)" % (mine // 256, mine % 256)
                    return line[: m.start()] + new + line[m.end() :]
            elif line.startswith(b"229 "):
                m = EPSV_RE.search(line)
                if m:
                    mine = await self.data_listener(conn, int(m.group(2)))
                    d = m.group(1)
                    return line[: m.start()] + b"(" + d * 3 + b"%d" % mine + d + b")" + line[m.end() :]
            return line

        async def from_server(data, at_end):
            nonlocal tls
            if tls:
                return data
            out = []
            for line in complete_lines("s2c", data, at_end):
                line = await rewrite(line)
                self.trace(conn, "< " + line.decode("latin-1").rstrip("\r\n")[:100])
                out.append(line)
                if line.startswith(b"234 "):
                    tls = True  # the rest of the connection cannot be read
            return b"".join(out)

        def delivered(data):
            conn.reply_seen = True

        async def client_writer():
            return writer

        async def up_writer():
            return (await upstream)[1]

        async def down():
            r, _ = await upstream
            await self.pump(r, client_writer(), from_server, delivered, to_client)

        pumps = [asyncio.ensure_future(self.pump(reader, up_writer(), from_client)), asyncio.ensure_future(down())]
        await self.join(writer, upstream, pumps)
        conn.open = False
        self.dirty.set()
        self.trace(conn, "control closed")

    # -- life --------------------------------------------------------------

    async def run(self):
        loop = asyncio.get_running_loop()
        for sig in (signal.SIGTERM, signal.SIGINT):
            loop.add_signal_handler(sig, self.stop.set)
        loop.add_signal_handler(signal.SIGUSR1, self.write_counts)

        def on_control(reader, writer):
            self.spawn(self.on_control(reader, writer))

        server = await asyncio.start_server(on_control, "127.0.0.1", self.args.port)
        port = server.sockets[0].getsockname()[1]
        if self.args.port_file:
            with open(self.args.port_file + ".tmp", "w") as f:
                f.write(f"{port}\n")
            os.replace(self.args.port_file + ".tmp", self.args.port_file)
        print(port, flush=True)
        self.write_counts()
        flusher = asyncio.ensure_future(self.flusher())
        try:
            await asyncio.wait_for(self.stop.wait(), self.args.lifetime)
        except asyncio.TimeoutError:
            print("latency-proxy: lifetime over", file=sys.stderr)
        server.close()
        for listener in list(self.listeners):
            listener.close()
        flusher.cancel()
        for task in list(self.tasks):
            task.cancel()
        try:
            await asyncio.wait_for(asyncio.gather(flusher, *self.tasks, return_exceptions=True), 5)
        except asyncio.TimeoutError:
            print("latency-proxy: connections still closing at exit", file=sys.stderr)
        for c in self.connections:
            c.open = False
        self.write_counts()
        if self.trace_file:
            self.trace_file.close()


def main():
    parser = argparse.ArgumentParser(description="FTP-aware delaying proxy for benchmarks (loopback only)")
    parser.add_argument("--server", required=True, help="the FTP server, HOST:PORT (loopback)")
    parser.add_argument("--delay-ms", type=float, default=float(os.environ.get("DELAY_MS", "0")),
                        help="one-way delay in each direction (default: $DELAY_MS or 0)")
    parser.add_argument("--port", type=int, default=0, help="port to listen on (default: any free one)")
    parser.add_argument("--port-file", help="file to write the listening port to")
    parser.add_argument("--counts", help="file the round-trip counts are written to")
    parser.add_argument("--trace", help="file every command, reply and data connection is appended to")
    parser.add_argument("--idle", type=float, default=900, help="seconds a silent connection is kept")
    parser.add_argument("--data-wait", type=float, default=60,
                        help="seconds a passive listener waits for its connection")
    parser.add_argument("--connect-timeout", type=float, default=10)
    parser.add_argument("--lifetime", type=float, default=4 * 3600, help="seconds before it ends by itself")
    args = parser.parse_args()
    host = args.server.rsplit(":", 1)[0].strip("[]")
    try:
        loopback = ipaddress.ip_address(host).is_loopback
    except ValueError:
        loopback = host == "localhost"
    if not loopback:
        parser.error("the server must be on loopback")
    asyncio.run(Proxy(args).run())


if __name__ == "__main__":
    main()
