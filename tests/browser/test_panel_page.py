"""The panel as a page: for the keyboard, for those who do not see it, by day and by night."""

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

from support.panel_turns import whole_turn

# What a person may use; each must say what it is.
CONTROLS = {"button", "textbox", "combobox", "link", "DisclosureTriangle"}


def controls(panel):
    """Role and name of every control, as the browser tells assistive technology."""
    panel.show()
    nodes = panel.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    return [(node["role"]["value"], node.get("name", {}).get("value", ""))
            for node in nodes if not node["ignored"] and node["role"]["value"] in CONTROLS]


def test_every_control_has_a_name(panel):
    panel.send("/scenario consent")
    panel.wait_for_question()
    found = controls(panel)
    nameless = [role for role, name in found if not name.strip()]
    assert not nameless, found
    names = {name for _, name in found}
    assert {"Message", "Send", "Stop", "Add files …", "New chat", "Chats …", "Allow (Alt+Y)",
            "Don't allow (Alt+N)"} <= names
    with whole_turn(panel):
        ActionChains(panel.driver).send_keys(Keys.ESCAPE).perform()


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


def test_it_is_light_by_day_and_dark_by_night(panel):
    def background(scheme):
        panel.show()
        panel.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        return panel.run("return getComputedStyle(document.body).backgroundColor")

    assert background("light") == "rgb(255, 255, 255)"
    assert background("dark") == "rgb(21, 24, 29)"
    panel.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})


def test_what_is_said_is_a_log_and_errors_are_alerts(panel):
    assert "development device" in panel.run("return document.querySelector('h1').innerText")
    panel.turn("/scenario error")
    roles = panel.run("""
      return [document.getElementById('chat').role, document.querySelector('.error').role,
        document.querySelector('.message.assistant').ariaBusy];
    """)
    assert roles == ["log", "alert", "false"]


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
