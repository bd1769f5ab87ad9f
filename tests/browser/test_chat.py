"""Chatting in the panel: what a user does and sees."""

import json

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys


def test_the_panel_connects_and_its_message_is_acknowledged(panel):
    assert panel.link_text == "Connected"
    assert panel.agent_state == "Agent connected"
    assert panel.tool_server == "http://127.0.0.1:39270"
    frame = panel.request(kind="getStatus")
    assert (frame["kind"], frame["ok"], frame["source"]) == ("ack", True, "morva-chat")


def test_a_turn_streams_its_text_in_order_and_shows_its_usage(panel, agent):
    # Every state that the answer goes through is recorded in the page itself.
    panel.run("""
      window.states = [];
      new MutationObserver(() => {
        const box = document.querySelector('.message.assistant');
        if (box) window.states.push([Number(box.dataset.seq), box.firstChild ? [...box.childNodes]
          .filter((node) => node.nodeType === 3).map((node) => node.data).join('') : '']);
      }).observe(document.getElementById('chat'), {subtree: true, childList: true});
    """)
    agent.set(tokens_per_second=100)
    with panel.whole_turn():
        panel.type("Tell me something")

    wanted = ("Hello! This is the stand-in agent. You said: Tell me something\n\n"
              "Every word of this answer came as an event of its own.")
    assert panel.answer == wanted
    states = panel.run("return window.states")
    texts = [text for _, text in states]
    assert all(wanted.startswith(text) for text in texts), "a piece came out of order"
    assert len(set(texts)) > 3, "the answer came all at once"
    sequence = [seq for seq, _ in states]
    assert sequence == sorted(sequence)
    assert panel.rows_of("thinking")[0].text.endswith("A short and friendly answer will do.")
    sent = agent.last_turn
    assert sent["ended"] == "finished"
    assert sent["body"]["messages"][0]["content"].endswith("Tell me something")
    assert panel.usage == {"prompt_tokens": 3, "completion_tokens": 34, "total_tokens": 37}
    assert not panel.rows_of("error") and not panel.busy


def test_escape_stops_an_answer_in_mid_stream(panel, agent):
    agent.set(tokens_per_second=30)
    with panel.whole_turn():
        panel.type("/scenario long 5000")
        panel.wait_for(lambda: panel.answer.count(" ") > 3, "no answer")
        assert panel.busy
        ActionChains(panel.driver).send_keys(Keys.ESCAPE).perform()

    assert not panel.busy and not panel.rows_of("error")
    assert panel.rows[-1].text == "Stopped."
    words = panel.answer.split()
    assert words == [f"word{number}" for number in range(len(words))]
    assert len(words) < 4000
    panel.wait_for(lambda: agent.last_turn["ended"] in ("cancelled", "disconnected"),
                   "the agent was not stopped")
    agent.set(tokens_per_second=0)
    panel.turn("and again")
    assert "and again" in panel.answer


def test_consent_is_given_with_the_mouse_and_refused_with_the_keyboard(panel):
    def refuse():
        ActionChains(panel.driver).key_down(Keys.ALT).send_keys("n").key_up(Keys.ALT).perform()

    for act, answer, decision in ((panel.allow, "Thank you, done.", "Allowed."),
                                  (refuse, "Then I leave them.", "Not allowed.")):
        panel.new_chat()
        with panel.whole_turn():
            panel.send("/scenario consent")
            card = panel.wait_for_question()
            assert card.text.startswith("Delete 3 files?\nrm report-1 report-2 report-3")
            act()
        assert panel.answer == f"That needs your consent. {answer}"
        assert panel.rows_of("consent")[0].text.endswith(decision)


def test_tools_files_and_commands_are_shown(panel):
    rows = panel.turn("/scenario commands")
    runs = [row for row in rows if row.kind == "run"]
    assert runs[0].text.split() == "$ make test compiling 3 passed exit code 0 (120 ms)".split()
    assert runs[1].text.split()[-6:] == "no rule exit code 2 (120 ms)".split()[-6:]
    assert [run.data["ok"] for run in runs] == ["true", "false"]
    rows = panel.turn("/scenario tools")
    assert [row.text for row in rows if row.kind == "tool"] == [
        "Read the page (412 ms)", "write_file (3.5 ms)"]
    assert rows[-2].text == "C:\\Users\\user\\Documents\\summary.pdf"


def test_an_error_of_the_agent_is_shown_and_the_log_when_asked_for(panel):
    panel.run("document.getElementById('host-details').open = true")
    rows = panel.turn("/scenario error")
    assert [row.text for row in rows if row.kind == "error"] == ["the model is overloaded"]
    assert panel.answer == "I will try. "
    panel.wait_for(lambda: panel.log_lines, "no log lines")
    panel.run("document.getElementById('host-details').open = false")


def test_a_chat_of_three_mebibytes_is_refused_and_the_port_stays_open(panel):
    # To the host it may be that large, back from it not.
    text = "three mebibytes " * (3 * 1024 * 1024 // 16)
    session = {"id": "s-huge", "title": "A huge chat", "updatedUnixMs": 1, "preset": "standin",
               "messages": [{"role": "user", "content": text}]}
    assert panel.request(kind="providerRpc", method="saveChatSession", session=session)["ok"]
    panel.run("document.getElementById('open-chats').click()")
    button = "return document.querySelector('[data-load=s-huge]')"
    panel.wait_for(lambda: panel.run(button), "the chat is not listed").click()
    panel.wait_for(lambda: panel.rows_of("error"), "no error")
    assert panel.request(kind="providerRpc", method="deleteChatSession", id="s-huge")["ok"]
    error = panel.rows_of("error")[0].text
    assert error.startswith("The chat was not opened: reply too large for the browser (3")
    assert error.endswith(" bytes)")
    panel.turn("still there?")
    assert "still there?" in panel.answer


def test_chats_are_kept_opened_and_deleted(panel):
    def press(button):
        """On the list of chats, in the row of ours, as soon as it is there."""
        panel.run("document.getElementById('open-chats').click()")
        panel.wait_for(lambda: panel.run("""
          const row = [...document.querySelectorAll('#chat-list li')]
            .find((each) => each.innerText.includes('Remember this'));
          row?.querySelector(arguments[0]).click();
          return row !== undefined;
        """, button), "the chat is not listed")

    panel.turn("Remember this")
    answer = panel.answer
    panel.run("document.getElementById('open-chats').click()")
    panel.run("document.getElementById('save-chat').click()")
    panel.run("document.getElementById('chats').close()")
    panel.new_chat()
    press(".load")
    panel.wait_for(lambda: len(panel.rows) == 2, "the chat was not opened")
    assert [row.text for row in panel.rows] == ["Remember this", answer]
    press("button:last-child")
    listed = "return document.getElementById('chat-list').innerText"
    panel.wait_for(lambda: "Remember this" not in panel.run(listed), "the chat was not deleted")
    panel.run("document.getElementById('chats').close()")


def test_the_host_is_told_of_the_tab_that_the_user_looks_at(panel, tools, agent, site):
    tools.goto(f"{site.url}/shop.html")
    panel.turn("/scenario echo")
    echoed = json.loads(panel.answer)
    assert echoed["messages"][0]["content"].startswith(
        f"[chrome tab] Lamps - Shop — {site.url}/shop.html\n\n")
    browser = echoed["morva"]["browser"]
    assert browser["currentUrl"] == f"{site.url}/shop.html"
    assert {"title": "Lamps - Shop", "url": f"{site.url}/shop.html"}.items() <= next(
        tab for tab in browser["tabs"] if tab["title"] == "Lamps - Shop").items()
    assert not any(tab["url"].startswith("chrome-extension:") for tab in browser["tabs"])
