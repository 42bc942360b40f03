"""An SSH server on 127.0.0.1 whose every command gives its input back on both streams.

It lets everybody in, and ends a command with an exit status and the close of its channel: no end
of file comes between. Prints its port.
"""

import asyncio

import asyncssh


class OpenDoor(asyncssh.SSHServer):
    def begin_auth(self, username):
        return False


async def give_back(process):
    data = await process.stdin.read()
    process.stdout.write(data)
    process.stderr.write(data)
    process.exit(7)


async def serve():
    server = await asyncssh.listen(
        "127.0.0.1",
        0,
        server_factory=OpenDoor,
        server_host_keys=[asyncssh.generate_private_key("ssh-ed25519")],
        process_factory=give_back,
        encoding=None,
    )
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.wait_closed()


asyncio.run(serve())
