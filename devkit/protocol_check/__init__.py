"""Holds what is said on every channel against the schemas of docs/schema."""
