"""The terminal panel: plays the browser's side of the host and shows a chat in the terminal."""
