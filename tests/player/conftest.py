from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: F401
