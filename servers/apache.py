"""Apache with mod_cgid."""

from servers.server import ServerOfOrdinaryUser


class Apache(ServerOfOrdinaryUser):
    """Scripts and server share a log; the server's lines begin with the time in brackets."""

    NAME = "apache"
    SETTING = 'SetEnv {} "{}"'
    LOG = "error.log"

    def log(self) -> str:
        lines = super().log().splitlines(keepends=True)
        return "".join(line for line in lines if not line.startswith("["))
