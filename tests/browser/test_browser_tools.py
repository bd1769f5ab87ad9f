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
    assert result["url"] == f"{site.url}/form.html" and isinstance(result["tabId"], int)
    data = result["data"]
    # 2 links, 9 fields, 3 buttons; the hidden one is not there.
    assert (data["count"], len(data["items"]), data["itemsOmitted"]) == (14, 12, 2)
    assert data["pageTextOmitted"] is True and "pageText" not in data
    items = items_of(result)
    wanted: dict[str, dict] = {
        "Your name": {"role": "textbox", "type": "text", "value": "", "disabled": False},
        "It is a gift": {"role": "checkbox", "checked": False},
        "Slow": {"role": "radio", "checked": True},
        "Submit the order": {"role": "button"},
    }
    for name, members in wanted.items():
        assert members.items() <= items[name].items(), name
    assert "value" not in items["Password"], "a password left the page"
    zones = {hint["name"]: hint for hint in data["zoneHints"]}
    assert zones["Order"]["role"] == "form" and zones["Order"]["interactiveCount"] == 12
    assert zones["Pages"]["role"] == "navigation" and zones["Pages"]["roles"] == ["link"]


def test_find_finds_by_name_and_in_the_text(form):
    for query, roles in (("submit THE", ["button"]), ("without plastic", ["text"]),
                         ("no such thing", []), ("unseen button", [])):
        assert [item["role"] for item in form.use("find", query=query)["data"]["items"]] == roles


# A tool, what finds the element that it is for, other arguments, and how the error ends.
REFUSED = [
    ("find", "", {}, "a query is needed"),
    ("click", "", {}, "a ref is needed"),
    ("click", "", {"ref": "e4"}, "no element e4"),
    ("click", "not now", {}, " is disabled"),
    ("type", "count", {"text": "x"}, " takes no text"),
    ("select", "size", {"value": "l"}, ' has no option "l"'),  # it is disabled
    ("select", "size", {"value": "xs"}, ' has no option "xs"'),
    ("select", "count", {"value": "m"}, "no options"),
    ("scope", "", {"name": "nowhere"}, "no zone nowhere"),
    *(("navigate", "", {"url": url}, "only http and https addresses can be opened")
      for url in ("chrome://settings", "file:///etc/passwd", "javascript:alert(1)")),
    ("navigate", "", {"url": "nowhere"}, '"nowhere" is no address'),
    ("navigate", "", {"action": "forward"}, "tool is not allowed"),
]


def test_what_cannot_be_done_is_refused_with_the_reason(form, site):
    for tool, query, arguments, error in REFUSED:
        target = {"ref": form.ref(query)} if query else {}
        failed = form.call(tool, **target, **arguments)
        assert failed["ok"] is False and failed["error"].endswith(error), (tool, arguments)
    ref = form.ref("count")
    number = ref.partition("e")[0] + "e999"
    assert form.call("click", ref=number)["error"] == f"no element {number}"
    form.goto(f"{site.url}/basket.html")
    gone = form.call("click", ref=ref)
    assert gone["error"] == f"{ref} is of a page that has gone; read the page again"


def test_click_type_and_select_change_the_page(form, page, site):
    count, name, size = form.ref("count"), form.ref("your name"), form.ref("size")
    assert form.use("click", ref=count)["data"] == {"clicked": count, "name": "Count"}
    form.use("click", ref=count)
    assert form.use("click", ref=form.ref("gift"))["data"]["checked"] is True
    form.use("click", ref=form.ref("fast"))
    result = form.use("type", ref=name, text="Änne 😀")
    assert (result["action"], result["data"]) == ("type", {"ref": name, "value": "Änne 😀"})
    form.use("type", ref=name, text=" M.", append=True)
    form.use("type", ref=form.ref("remarks"), text="two\nlines")
    form.use("type", ref=form.ref("note"), text="a note")
    assert "value" not in form.use("type", ref=form.ref("password"), text="geheim")["data"]
    assert form.use("select", ref=size, value="m")["data"]["value"] == "m"  # a value
    assert form.use("select", ref=size, value="extra LARGE")["data"]["value"] == "xl"  # a label
    assert page("""
      const of = (name) => document.querySelector(`[name=${name}]`).value;
      const text = (id) => document.getElementById(id).textContent;
      return [text('count'), document.querySelector('[name=speed]:checked').value, of('who'),
        of('remarks'), text('note'), of('secret'), of('size')];
    """) == ["Counted 2", "fast", "Änne 😀 M.", "two\nlines", "a note", "geheim", "xl"]
    events = page("return document.getElementById('events').textContent").split()
    assert events[0] == "pointerdown" and events[-2:] == ["input:size", "change:size"]
    assert events.index("input:who") < events.index("change:who")

    result = form.use("type", ref=form.ref("e-mail"), text="a@example.org", submit=True)
    assert result["title"] == "Basket - Shop"  # the answer comes when the page is there
    assert "mail=a%40example.org" in form.use("navigate")["tabs"][0]["url"]
    form.use("navigate", action="back")
    result = form.use("click", ref=form.ref("another page"))
    assert (result["title"], result["url"]) == ("Basket - Shop", f"{site.url}/basket.html")


def test_scope_keeps_reads_inside_a_zone(form):
    zones = {zone["name"]: zone["ref"] for zone in form.use("scope")["data"]["zones"]}
    scope = form.use("scope", ref=zones["Pages"])["scope"]
    assert scope == {"active": True, "ref": zones["Pages"], "name": "Pages", "source": "agent"}
    assert set(items_of(form.use("read"))) == {"Another page", "Further down"}
    assert form.use("find", query="count")["data"]["matchCount"] == 0
    assert form.use("scope", name="order")["scope"]["name"] == "Order"
    assert form.use("find", query="count")["data"]["matchCount"] == 1
    assert form.call("scope", name="nowhere")["ok"] is False
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
        {"action": "find", "query": "checkout"},
    ])
    assert result["all_ok"] is True and result["first_failure"] is None
    assert result["actionTrail"] == ["type", "select", "wait", "batch", "read", "click", "find"]
    steps = result["steps"]
    assert steps[2]["waited_ms"] == 10
    assert steps[3]["data"]["all_ok"] is True
    assert steps[4]["data"]["itemsReturned"] == 14
    assert steps[5]["auto"] is True and steps[5]["waited_ms"] > 0
    assert [item["name"] for item in steps[6]["data"]["items"]][:1] == [
        "Continue to the checkout"]
    assert result["title"] == "Basket - Shop"


def test_batch_stops_at_the_first_failure(form):
    result = form.use("batch", steps=[
        {"action": "find", "query": "count"}, {"action": "click", "ref": "d1e999"},
        {"action": "find", "query": "never"}])
    assert result["all_ok"] is False and result["first_failure"] == 1
    assert result["batch_error"].startswith("step 1 (click): ")
    assert [step["ok"] for step in result["steps"]] == [True, False]


def test_navigate_opens_goes_back_and_reloads(form, page, site):
    page("window.mark = 1")
    result = form.goto(f"{site.url}/basket.html")
    assert (result["action"], result["title"]) == ("goto", "Basket - Shop")
    assert form.use("navigate", action="back")["title"] == "A form"
    page("window.mark = 2")
    form.use("navigate", action="reload")
    assert page("return window.mark") is None
    assert form.goto(f"{site.url}/form.html#below")["url"].endswith("#below")


def test_navigate_handles_tabs(form, site):
    first = form.use("navigate", action="tabs")
    known = {tab["id"] for tab in first["tabs"]}
    assert not any("chrome-extension" in tab["url"] for tab in first["tabs"])
    other = form.use("navigate", action="new", url=f"{site.url}/basket.html")
    opened = other["tabId"]
    assert opened not in known and other["title"] == "Basket - Shop"
    assert form.use("read")["tabId"] == opened
    assert form.use("navigate", action="switch", tabId=min(known))["tabId"] == min(known)
    reused = form.use("navigate", action="new", url=f"{site.url}/basket.html")
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
    tools.goto(f"{site.url}/basket.html")
    page("""
      document.body.replaceChildren();
      for (let number = 0; number < 3000; number += 1) {
        const button = document.createElement('button');
        button.textContent = `Button number ${number}`;
        button.addEventListener('click', () => (document.title = `Pressed ${number}`));
        document.body.append(button, ' ');
      }
    """)
    data = tools.use("read")["data"]
    assert (data["count"], len(data["items"]), data["itemsOmitted"]) == (3000, 12, 2988)
    tools.use("click", ref=tools.ref("Button number 2999"))
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


def test_half_an_emoji_is_replaced_and_harms_nothing(tools, page, site):
    tools.goto(f"{site.url}/basket.html")
    page(r"""
      document.querySelector('p').textContent = 'one half \ud83d and the other \ude00 in a text';
      document.querySelector('button').textContent = 'Broken \ud83d name';
    """)
    assert "Broken \ufffd name" in items_of(tools.use("read"))
    (text,) = tools.use("find", query="and the other")["data"]["items"]
    assert text["name"] == "one half \ufffd and the other \ufffd in a text"
    assert tools.use("click", ref=tools.ref("broken"))["ok"] is True


def test_a_page_of_the_browser_itself_cannot_be_read(tools, page):
    page("return 1")
    tools.goto("http://127.0.0.1:1/")  # nobody listens there: the browser shows an error page
    failed = tools.call("read")
    assert failed["ok"] is False
    assert failed["error"].startswith("this page cannot be reached: ")
