"""What the stand-in knows: conversations, commands, skills, files, credit. All of it invented."""

from __future__ import annotations

from typing import Any

Json = dict[str, Any]


def _message(role: str, text: str) -> Json:
    return {"role": role, "content": text}


SESSIONS: list[Json] = [
    {
        "id": "s-2041",
        "title": "Quarterly report: what changed",
        "updatedUnixMs": 1_763_640_300_000,
        "preset": "standin",
        "messages": [
            _message("user", "What changed in the quarterly report since August?"),
            _message("assistant", "Revenue is up 4 %, travel costs fell by a third, and the "
                                  "outlook for spring was lowered."),
            _message("user", "Which page says that about travel?"),
            _message("assistant", "Page 12, in the second table."),
        ],
    },
    {
        "id": "s-2038",
        "title": "Bike route to Lübeck",
        "updatedUnixMs": 1_763_553_900_000,
        "preset": "standin-quick",
        "messages": [
            _message("user", "Find me a flat route of about 60 km."),
            _message("assistant", "Along the old canal: 58 km, 90 m of climbing."),
        ],
    },
    {
        "id": "s-1977 draft & notes",
        "title": "Draft: thank-you letter",
        "updatedUnixMs": 1_762_171_500_000,
        "preset": "standin",
        "messages": [_message("user", "Make it shorter, and warmer.")],
    },
]

COMMANDS: list[Json] = [
    {"id": "summarize-page", "title": "Summarize this page", "shortcut": "Ctrl+Shift+S"},
    {"id": "list-links", "title": "List the links of this page"},
    {"id": "open-report", "title": "Open the report in its own window", "needsUi": True},
]

COMMAND_RESULTS = {
    "summarize-page": "A page of examples, reserved for documents. It asks for nothing.",
    "list-links": "1 link: More information ... (iana.org)",
}

SKILLS: list[Json] = [
    {"name": "tidy-table", "description": "Turns a pasted table into one with even columns",
     "scope": "user"},
    {"name": "meeting-notes", "description": "Decisions and open points from a transcript",
     "scope": "user"},
]
FOLDER_SKILL: Json = {"name": "release-notes", "scope": "folder",
                      "description": "Writes release notes from the commits of this folder"}

RECENT_PATHS: list[Json] = [
    {"path": "C:\\Users\\demo\\Documents\\quarterly-report.pdf", "kind": "file"},
    {"path": "C:\\Users\\demo\\Pictures\\Lübeck", "kind": "folder"},
    {"path": "C:\\Users\\demo\\Documents\\letter.docx", "kind": "file"},
]

FILE_NAMES = [
    "quarterly-report.pdf", "quarterly-report-draft.docx", "travel-costs.xlsx", "letter.docx",
    "route-canal.gpx", "lübeck-harbour.jpg", "notes.txt", "report-template.dotx",
]

TYPEAHEAD_PRESETS: list[Json] = [
    {"trigger": "/sum", "text": "Summarize this page in five sentences."},
    {"trigger": "/tr", "text": "Translate the selection into English."},
]

ARTIFACTS: list[Json] = [
    {"id": "v-18", "title": "Costs by month", "kind": "chart", "sessionId": "s-2041"},
    {"id": "v-17", "title": "Route along the canal", "kind": "map", "sessionId": "s-2038"},
    {"id": "v-12", "title": "Letter, second draft", "kind": "document",
     "sessionId": "s-1977 draft & notes"},
]

CREDIT: Json = {"plan": "personal", "currency": "EUR", "remaining": 7.42, "granted": 10.0,
                "renewsOn": "2026-12-01"}
