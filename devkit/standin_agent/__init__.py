"""The stand-in agent: an HTTP server that speaks the agent's paths from a script."""
