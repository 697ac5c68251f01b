"""Apache with mod_cgid."""

from servers.server import ServerOfOrdinaryUser


class Apache(ServerOfOrdinaryUser):
    """Scripts write to the same log as the server, whose own lines begin with the time in
    brackets."""

    NAME = "apache"
    SETTING = 'SetEnv {} "{}"'
    LOG = "error.log"

    def log(self) -> str:
        lines = super().log().splitlines(keepends=True)
        return "".join(line for line in lines if not line.startswith("["))
