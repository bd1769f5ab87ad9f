"""Files that are pasted or dropped into the panel, and images that come back."""

import json

import pytest

# Puts a file into a DataTransfer and lets the panel see it as the browser would.
GIVE_FILE = """
  const [name, size, how, done] = arguments;
  const canvas = document.createElement('canvas');
  canvas.width = canvas.height = size;
  canvas.getContext('2d').fillRect(0, 0, size / 2, size / 2);
  canvas.toBlob((blob) => {
    const transfer = new DataTransfer();
    transfer.items.add(new File([blob], name, {type: 'image/png'}));
    const event = how === 'paste'
      ? new ClipboardEvent('paste', {clipboardData: transfer, bubbles: true, cancelable: true})
      : new DragEvent('drop', {dataTransfer: transfer, bubbles: true, cancelable: true});
    document.getElementById('prompt').dispatchEvent(event);
    done();
  }, 'image/png');
"""

SHOWN = """
  return [...document.querySelectorAll('figure.image')].map((figure) => ({
    path: figure.dataset.path, shown: figure.dataset.shown,
    width: figure.querySelector('img')?.naturalWidth}));
"""


def echoed(panel):
    """What of the host's the agent gets, after a turn in the chat that is open."""
    with panel.whole_turn():
        panel.send("/scenario echo")
    return json.loads(panel.answer)["morva"]


def give_file(panel, name, size, how):
    panel.show()
    panel.driver.execute_async_script(GIVE_FILE, name, size, how)


@pytest.mark.parametrize("how", ["paste", "drop"])
def test_an_image_is_uploaded_shown_and_goes_with_the_message(panel, how):
    give_file(panel, "my picture ü.png", 48, how)
    panel.wait_for(lambda: panel.rows_of("image") or panel.rows_of("error"), "no image")
    assert not panel.rows_of("error")
    panel.wait_for(lambda: panel.run(SHOWN)[0]["shown"], "the image was neither shown nor refused")
    [image] = panel.run(SHOWN)
    assert image["shown"] == "true" and image["width"] == 48
    assert image["path"].endswith("-my picture ü.png")
    assert "\\chrome-extension\\chat-paste\\" in image["path"]

    assert echoed(panel)["selection"] == [image["path"]]
    assert "selection" not in echoed(panel), "the file went twice"


def test_paths_that_the_host_gives_go_with_the_message(panel):
    paths = ["C:\\Users\\user\\Documents\\summary.pdf", "C:\\Users\\user\\Pictures"]
    reply = panel.request(kind="attachContextPaths", paths=paths)
    assert (reply["kind"], reply["ok"]) == ("ack", True)
    listed = "return [...document.querySelectorAll('#attachments li')].map((e) => e.dataset.path)"
    panel.wait_for(lambda: panel.run(listed) == paths, "the paths are not listed")
    panel.run("document.querySelector('#attachments li:last-child button').click()")
    assert echoed(panel)["selection"] == paths[:1]


def test_an_empty_file_is_refused_in_words(panel):
    panel.run("""
      const transfer = new DataTransfer();
      transfer.items.add(new File([], 'nothing.txt'));
      document.dispatchEvent(new ClipboardEvent('paste', {clipboardData: transfer}));
    """)
    panel.wait_for(lambda: panel.rows_of("error"), "no error")
    assert panel.rows_of("error")[0].text == "nothing.txt was not taken: empty file"


def test_an_image_outside_of_the_hosts_folder_is_not_served(panel):
    panel.turn("/scenario tools")
    panel.wait_for(lambda: panel.run(SHOWN)[0]["shown"], "the image was neither shown nor refused")
    assert panel.run(SHOWN)[0]["shown"] == "false"
    assert panel.rows_of("image")[0].text.startswith(
        "C:\\Users\\user\\Pictures\\Screenshot.PNG (the host does not serve this file)")


def test_a_web_page_gets_nothing_from_the_tool_server(panel, tools, page, site):
    """The rule that lets the panel in is for the panel alone."""
    tools.goto(f"{site.url}/basket.html")
    page("return 1")
    answers = panel.driver.execute_async_script("""
      const [url, done] = arguments;
      const image = new Image();
      Promise.allSettled([fetch(url, {headers: {'X-Morva-Session': 'guessed'}}),
        new Promise((shown, refused) => {
          image.onload = shown;
          image.onerror = refused;
          image.src = url.replace('/agent-tools', '/local-file?path=x.png');
        })]).then((all) => done(all.map((each) => each.status)));
    """, tools.url)
    assert answers == ["rejected", "rejected"]
