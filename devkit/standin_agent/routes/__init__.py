"""One module per subject of the agent's HTTP interface, each with its list ROUTES."""
