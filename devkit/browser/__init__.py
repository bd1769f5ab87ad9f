"""A real browser with the dev extension, its native host, and a site to look at."""
