"""Turns in which the agent uses this browser, from its stream to the page."""


def test_a_turn_reads_finds_clicks_types_selects_batches_and_navigates(panel, tools, page, site):
    tools.goto(f"{site.url}/form.html")
    rows = panel.turn(f"/scenario browse {site.url}", patience=90)
    assert not [row.text for row in rows if row.kind == "error"]
    assert panel.answer.startswith("I have 8 browser tools. ")
    assert panel.answer.endswith("Forward is not possible: tool is not allowed. Done.")
    tool_lines = [row.text.split(":")[0] for row in rows if row.kind == "tool"]
    assert tool_lines == [f"browser_{name}" for name in (
        "navigate", "read", "find", "find", "click", "type", "find", "select", "batch", "navigate",
        "navigate", "navigate")]
    assert page("return [document.title, location.href]") == [
        "Lamps - Shop", f"{site.url}/shop.html"]


def test_a_hostile_page_is_flagged_and_redacted(panel, tools, site):
    tools.goto(f"{site.url}/shop.html")
    rows = panel.turn(f"/scenario hostile-page {site.url}", patience=90)
    assert not [row.text for row in rows if row.kind == "error"]
    assert "browser_read: flagged as instruction_override" in "\n".join(row.text for row in rows)
    assert panel.answer.startswith("Flagged: instruction_override. Element d")
    assert "reads: [redacted: prompt-injection content removed]. " in panel.answer
    assert "evil.example" not in panel.answer
