"""An SSH server on 127.0.0.1, with keys, commands and SFTP, by the authors of AsyncSSH.

Commands and SFTP begin in the current directory. Prints its port when it listens.
"""

import argparse
import asyncio
import signal
from asyncio.subprocess import PIPE

import asyncssh


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--host-key", required=True, help="private key file")
    parser.add_argument("--authorized-keys", required=True, help="who may log in")
    parser.add_argument("--version", help='what comes after "SSH-2.0-"; else AsyncSSH\'s own')
    parser.add_argument("--sftp-command", help="serves SFTP in place of AsyncSSH")
    parser.add_argument("--echo", action="store_true", help="see give_back")
    return parser.parse_args()


async def give_back(process):
    """Gives the input back on both streams. Then come an exit status and the close of the channel:
    no end of file between."""
    data = await process.stdin.read()
    process.stdout.write(data)
    process.stderr.write(data)
    process.exit(7)


async def copy(reader, writer):
    while data := await reader.read(262144):
        writer.write(data)
        await writer.drain()


async def feed(process, child):
    """Passes input and signals on to the child."""
    while True:
        try:
            await copy(process.stdin, child.stdin)
            break
        except asyncssh.SignalReceived as received:
            child.send_signal(getattr(signal, "SIG" + received.signal))
        except (asyncssh.Error, OSError):
            break
    child.stdin.close()


async def run(process, command):
    child = await asyncio.create_subprocess_shell(command, stdin=PIPE, stdout=PIPE, stderr=PIPE)
    feeding = asyncio.create_task(feed(process, child))
    try:
        await asyncio.gather(copy(child.stdout, process.stdout), copy(child.stderr, process.stderr))
        process.stdout.write_eof()
    except (asyncssh.Error, OSError):
        pass  # the client has gone; its command goes on
    status = await child.wait()
    feeding.cancel()
    if status < 0:
        process.exit_with_signal(signal.Signals(-status).name[3:])
    else:
        process.exit(status)


async def run_command(process):
    await run(process, process.command or "exec ${SHELL:-/bin/sh}")


class ForeignSftp(asyncssh.SSHServerProcess):
    """A session whose SFTP is a command, which AsyncSSH has no setting for."""

    def __init__(self, command):
        super().__init__(self._run, None, 0, False)
        self._sftp_command = command
        self._is_sftp = False

    def subsystem_requested(self, subsystem):
        # Told the truth, the base class would start a server of its own.
        self.channel.get_subsystem = lambda: None
        self._is_sftp = subsystem == "sftp"
        return self._is_sftp

    async def _run(self, process):
        if self._is_sftp:
            await run(process, self._sftp_command)
        else:
            await run_command(process)


def services(arguments):
    if arguments.echo:
        return {"process_factory": give_back}
    if arguments.sftp_command is None:
        return {"process_factory": run_command, "sftp_factory": asyncssh.SFTPServer}

    class Server(asyncssh.SSHServer):
        def session_requested(self):
            return ForeignSftp(arguments.sftp_command)

    return {"server_factory": Server}


async def serve(arguments):
    options = services(arguments)
    if arguments.version is not None:
        options["server_version"] = arguments.version
    server = await asyncssh.listen(
        "127.0.0.1",
        0,
        server_host_keys=[arguments.host_key],
        authorized_client_keys=arguments.authorized_keys,
        encoding=None,
        **options,
    )
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.wait_closed()


asyncio.run(serve(parse_arguments()))
