"""The eight browser tools on real pages, called as the agent calls them."""

import pytest


@pytest.fixture
def form(tools, site):
    tools.goto(f"{site.url}/form.html")
    return tools


def items_of(result):
    return {item["name"]: item for item in result["data"]["items"]}


def test_read_tells_what_is_on_the_page(form, site):
    result = form.use("read")
    assert result["url"] == f"{site.url}/form.html"
    assert isinstance(result["tabId"], int)
    data = result["data"]
    # 2 links, 9 fields, 3 buttons; the hidden one is not there.
    assert data["count"] == 14
    assert data["pageTextOmitted"] is True and "pageText" not in data
    items = items_of(result)
    assert len(data["items"]) == 12 and data["itemsOmitted"] == 2
    wanted = {
        "Your name": {"role": "textbox", "type": "text", "value": "", "disabled": False},
        "E-mail": {"role": "textbox", "type": "email"},
        "It is a gift": {"role": "checkbox", "checked": False},
        "Slow": {"role": "radio", "checked": True},
        "Fast": {"role": "radio", "checked": False},
        "Note": {"role": "textbox"},
        "Submit the order": {"role": "button"},
    }
    for name, members in wanted.items():
        assert members.items() <= items[name].items(), name
    size = next(item for item in data["items"] if item["role"] == "combobox")
    assert size["value"] == "s"
    assert "value" not in items["Password"], "a password left the page"
    zones = {hint["name"]: hint for hint in data["zoneHints"]}
    assert zones["Order"]["role"] == "form" and zones["Order"]["interactiveCount"] == 12
    assert zones["Pages"]["role"] == "navigation" and zones["Pages"]["roles"] == ["link"]


def test_find_finds_by_name_and_in_the_text(form):
    found = form.use("find", query="submit THE")["data"]
    assert found["matchCount"] == 1
    assert found["items"][0]["role"] == "button"
    found = form.use("find", query="without plastic")["data"]
    assert [item["role"] for item in found["items"]] == ["text"]
    assert "two days" in found["items"][0]["name"]
    assert form.use("find", query="no such thing")["data"]["matchCount"] == 0
    assert form.use("find", query="unseen button")["data"]["matchCount"] == 0
    assert form.call("find")["error"] == "a query is needed"


def test_click_presses_buttons_boxes_and_links(form, page, site):
    ref = form.ref("count")
    assert form.use("click", ref=ref)["data"] == {"clicked": ref, "name": "Count"}
    form.use("click", ref=ref)
    assert page("return document.getElementById('count').textContent") == "Counted 2"
    assert page("return document.getElementById('events').textContent").startswith("pointerdown")
    assert form.use("click", ref=form.ref("gift"))["data"]["checked"] is True
    form.use("click", ref=form.ref("fast"))
    assert page("return document.querySelector('[name=speed]:checked').value") == "fast"
    result = form.use("click", ref=form.ref("another page"))
    # The answer comes when the page that followed is there.
    assert (result["title"], result["url"]) == ("Another page", f"{site.url}/after.html")


def test_click_says_why_it_cannot(form, site):
    assert form.call("click", ref=form.ref("not now"))["error"].endswith(" is disabled")
    assert form.call("click")["error"] == "a ref is needed"
    assert form.call("click", ref="e4")["error"] == "no element e4"
    ref = form.ref("count")
    number = ref.partition("e")[0] + "e999"
    assert form.call("click", ref=number)["error"] == f"no element {number}"
    form.goto(f"{site.url}/after.html")
    gone = form.call("click", ref=ref)
    assert gone["error"] == f"{ref} is of a page that has gone; read the page again"


def test_type_writes_into_fields(form, page):
    name = form.ref("your name")
    result = form.use("type", ref=name, text="Änne 😀")
    assert result["data"] == {"ref": name, "value": "Änne 😀"}
    assert result["action"] == "type"
    form.use("type", ref=name, text=" M.", append=True)
    form.use("type", ref=form.ref("remarks"), text="two\nlines")
    form.use("type", ref=form.ref("note"), text="a note")
    assert "value" not in form.use("type", ref=form.ref("password"), text="geheim")["data"]
    values = page("""
      const of = (name) => document.querySelector(`[name=${name}]`).value;
      return [of('who'), of('remarks'), document.getElementById('note').textContent, of('secret')];
    """)
    assert values == ["Änne 😀 M.", "two\nlines", "a note", "geheim"]
    events = page("return document.getElementById('events').textContent").split()
    assert events[:2] == ["input:who", "change:who"]
    assert form.call("type", ref=form.ref("count"), text="x")["error"].endswith(" takes no text")
    result = form.use("type", ref=form.ref("e-mail"), text="a@example.org", submit=True)
    assert result["title"] == "Another page"
    assert "mail=a%40example.org" in form.use("navigate")["tabs"][0]["url"]


def test_select_chooses_by_value_and_by_label(form, page):
    size = form.ref("size")
    assert form.use("select", ref=size, value="m")["data"]["value"] == "m"
    assert form.use("select", ref=size, value="extra LARGE")["data"]["value"] == "xl"
    assert page("return document.querySelector('[name=size]').value") == "xl"
    assert page("return document.getElementById('events').textContent").split() == [
        "input:size", "change:size"] * 2
    assert form.call("select", ref=size, value="l")["error"] == f'{size} has no option "l"'
    assert form.call("select", ref=size, value="xs")["error"] == f'{size} has no option "xs"'
    assert form.call("select", ref=form.ref("count"), value="m")["error"].endswith("no options")


def test_scope_keeps_reads_inside_a_zone(form):
    zones = form.use("scope")["data"]["zones"]
    assert {"Order", "Pages"} <= {zone["name"] for zone in zones}
    pages = next(zone for zone in zones if zone["name"] == "Pages")
    scope = form.use("scope", ref=pages["ref"])["scope"]
    assert scope == {"active": True, "ref": pages["ref"], "name": "Pages", "source": "agent"}
    assert set(items_of(form.use("read"))) == {"Another page", "Further down"}
    assert form.use("find", query="count")["data"]["matchCount"] == 0
    assert form.use("scope", name="order")["scope"]["name"] == "Order"
    assert form.use("find", query="count")["data"]["matchCount"] == 1
    assert form.call("scope", name="nowhere")["error"] == "no zone nowhere"
    assert form.use("scope")["scope"]["name"] == "Order", "a failure must not unpin"
    assert form.use("scope", clear=True)["scope"] == {"active": False}
    assert form.use("read")["data"]["count"] == 14


def test_batch_runs_to_its_end_and_follows_a_link(form):
    refs = {name: form.ref(name) for name in ("your name", "size", "another page")}
    result = form.use("batch", steps=[
        {"action": "type", "ref": refs["your name"], "text": "B."},
        {"tool": "browser_select", "ref": refs["size"], "value": "m"},
        {"action": "wait", "ms": 10},
        {"action": "batch", "arguments": {"steps": [{"action": "find", "query": "fast"}]}},
        {"action": "read"},
        {"name": "click", "ref": refs["another page"]},
        {"action": "find", "query": "here"},
    ])
    assert result["all_ok"] is True and result["first_failure"] is None
    assert result["actionTrail"] == ["type", "select", "wait", "batch", "read", "click", "find"]
    steps = result["steps"]
    assert steps[2]["waited_ms"] == 10
    assert steps[3]["data"]["all_ok"] is True
    assert steps[4]["data"]["itemsReturned"] == 14
    assert steps[5]["auto"] is True and steps[5]["waited_ms"] > 0
    assert [item["name"] for item in steps[6]["data"]["items"]][:1] == ["Here"]
    assert result["title"] == "Another page"


def test_batch_stops_at_the_first_failure(form, page):
    name = form.ref("your name")
    result = form.use("batch", steps=[
        {"action": "type", "ref": name, "text": "first"},
        {"action": "click", "ref": "d1e999"},
        {"action": "type", "ref": name, "text": "never"},
    ])
    assert result["all_ok"] is False and result["first_failure"] == 1
    assert result["batch_error"].startswith("step 1 (click): ")
    assert [step["ok"] for step in result["steps"]] == [True, False]
    assert page("return document.querySelector('[name=who]').value") == "first"


def test_navigate_opens_goes_back_and_reloads(form, page, site):
    page("window.mark = 1")
    result = form.goto(f"{site.url}/after.html")
    assert (result["action"], result["title"]) == ("goto", "Another page")
    result = form.use("navigate", action="back")
    assert result["title"] == "A form"
    page("window.mark = 2")
    form.use("navigate", action="reload")
    assert page("return window.mark") is None
    same = form.goto(f"{site.url}/form.html#below")
    assert same["url"].endswith("#below")
    for url in ("chrome://settings", "file:///etc/passwd", "javascript:alert(1)"):
        refused = form.call("navigate", url=url)
        assert refused["error"] == "only http and https addresses can be opened"
    assert form.call("navigate", url="nowhere")["error"] == '"nowhere" is no address'
    assert form.call("navigate", action="forward")["error"] == "tool is not allowed"


def test_navigate_handles_tabs(form, site):
    first = form.use("navigate", action="tabs")
    known = {tab["id"] for tab in first["tabs"]}
    assert not any("chrome-extension" in tab["url"] for tab in first["tabs"])
    other = form.use("navigate", action="new", url=f"{site.url}/after.html")
    opened = other["tabId"]
    assert opened not in known and other["title"] == "Another page"
    assert form.use("read")["tabId"] == opened
    again = form.use("navigate", action="switch", tabId=form.use("read", tabId=min(known))["tabId"])
    assert again["tabId"] == min(known)
    reused = form.use("navigate", action="new", url=f"{site.url}/after.html")
    assert reused["reused"] is True and reused["tabId"] == opened
    closed = form.use("navigate", action="close", tabId=opened)
    assert closed["closed"] == opened
    assert {tab["id"] for tab in closed["tabs"]} == known
    assert form.call("navigate", action="switch", tabId=opened)["error"] == f"no tab {opened}"


def test_files_are_images_and_links_to_files(tools, site):
    tools.goto(f"{site.url}/shop.html")
    files = tools.use("read")["data"]["files"]
    assert len(files) == 8
    assert files[:2] == [
        {"kind": "link", "url": f"{site.url}/price-list.pdf", "name": "price-list.pdf"},
        {"kind": "image", "url": f"{site.url}/lamp.svg", "name": "reading lamp 0"}]


def test_a_page_of_three_thousand_elements(tools, page, site):
    tools.goto(f"{site.url}/many.html")
    data = tools.use("read")["data"]
    assert data["count"] == 3000
    assert len(data["items"]) == 12 and data["itemsOmitted"] == 2988
    found = tools.use("find", query="Button number 2999")["data"]
    assert found["matchCount"] == 1
    tools.use("click", ref=found["items"][0]["ref"])
    assert page("return document.title") == "Pressed 2999"


def test_frames_of_both_origins_are_part_of_the_page(tools, page, site):
    tools.goto(f"{site.url}/frames.html")
    names = set(items_of(tools.use("read")))
    assert {"In the page itself", "In the frame of the same origin",
            "In the frame of the other origin"} <= names
    for origin in ("same", "other"):
        field = tools.ref(f"field of the {origin}")
        assert tools.use("type", ref=field, text="within")["data"]["value"] == "within"
        tools.use("click", ref=tools.ref(f"in the frame of the {origin}"))
        assert tools.use("find", query=f"pressed in the {origin}")["data"]["matchCount"] == 1
    text = "return document.querySelector('iframe').contentDocument.body.innerText"
    assert "Pressed in the same origin" in page(text)


def test_half_an_emoji_is_replaced_and_harms_nothing(tools, site):
    tools.goto(f"{site.url}/half.html")
    items = items_of(tools.use("read"))
    assert {"Broken \ufffd name", "Whole 😀 name"} <= set(items)
    assert items["Field"]["value"] == "value \ufffd"
    found = tools.use("find", query="and the other")["data"]["items"]
    assert found[0]["name"] == "one half \ufffd and the other \ufffd in a text"
    assert tools.use("click", ref=items["Broken \ufffd name"]["ref"])["ok"] is True


def test_a_page_of_the_browser_itself_cannot_be_read(tools, page):
    page("return 1")
    tools.goto("http://127.0.0.1:1/")  # nobody listens there: the browser shows an error page
    failed = tools.call("read")
    assert failed["ok"] is False
    assert failed["error"].startswith("this page cannot be reached: ")
