"""What the system tests stand on: the browser's side, the agent's side, and how builds differ."""
