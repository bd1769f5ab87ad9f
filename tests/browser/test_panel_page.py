"""The panel as a page: for the keyboard, for those who do not see it, beside others of its kind."""

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys


# What a person may use; each must say what it is.
CONTROLS = {"button", "textbox", "combobox", "link", "DisclosureTriangle"}


def test_every_control_has_a_name_and_what_is_said_is_a_log(panel):
    panel.send("/scenario consent")
    panel.wait_for_question()
    nodes = panel.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    names = [node.get("name", {}).get("value", "").strip() for node in nodes
             if not node["ignored"] and node["role"]["value"] in CONTROLS]
    assert all(names), names
    assert {"Message", "Send", "Stop", "Add files …", "New chat", "Chats …", "Allow (Alt+Y)",
            "Don't allow (Alt+N)"} <= set(names)
    with panel.whole_turn():
        ActionChains(panel.driver).send_keys(Keys.ESCAPE).perform()
    panel.turn("/scenario error")
    assert panel.run("""
      return [document.getElementById('chat').role, document.querySelector('.error').role,
        document.querySelector('.message.assistant').ariaBusy];
    """) == ["log", "alert", "false"]


def test_the_tab_key_reaches_everything_in_order(panel):
    panel.run("document.querySelector('.skip').focus()")
    reached = []
    while len(reached) < 20:
        ActionChains(panel.driver).send_keys(Keys.TAB).perform()
        name = panel.run("return document.activeElement.id || document.activeElement.tagName")
        if name in reached or name == "BODY":
            break
        reached.append(name)
    wanted = ["new-chat", "open-chats", "preset", "chat", "prompt", "send", "SUMMARY"]
    assert [name for name in reached if name in wanted] == wanted, reached


def test_the_button_of_the_extension_opens_the_side_panel(panel):
    behaviour = panel.driver.execute_async_script(
        "chrome.sidePanel.getPanelBehavior().then(arguments[0])")
    assert behaviour == {"openPanelOnActionClick": True}
    # Only a click may open it; here one on a button of the panel's own page.
    panel.run("""
      const button = document.createElement('button');
      button.id = 'open-side-panel';
      chrome.windows.getCurrent().then(({id}) => {
        button.onclick = () => chrome.sidePanel.open({windowId: id});
        document.querySelector('nav').append(button);
      });
    """)
    find = "return document.getElementById('open-side-panel')"
    panel.wait_for(lambda: panel.run(find), "no button")
    panel.run(find).click()
    contexts = """
      const done = arguments[0];
      chrome.runtime.getContexts({contextTypes: ['SIDE_PANEL']}).then((all) => done(all.length));
    """
    panel.wait_for(lambda: panel.driver.execute_async_script(contexts) == 1, "no side panel")
    panel.run("document.getElementById('open-side-panel').remove()")
    panel.turn("with both open")
    assert "with both open" in panel.answer
