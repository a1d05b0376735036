"""Uses the page of the API reference as a person would, in a headless browser:
reference_in_browser.py BIN_DIR. The page comes from the host recorder. It must load nothing from elsewhere,
show no errors, and create a rule."""

import sys

from selenium import webdriver

from driver import Recorder, run_command

# The browser can resolve no other host.
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu",
           "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"]


def find(page, selector):
    return page.find_element("css selector", selector)


def create_rule(page, recorder):
    """Sends the example request that creates a rule. Returns the answer that the page shows."""
    find(page, "#operations-Rules-addRule .opblock-summary").click()
    find(page, "button.authorize").click()
    find(page, "[aria-label=auth-basic-username]").send_keys(recorder.user)
    find(page, "[aria-label=auth-basic-password]").send_keys(recorder.password)
    find(page, ".auth-btn-wrapper .authorize").click()
    find(page, ".auth-btn-wrapper .btn-done").click()
    find(page, "#operations-Rules-addRule .execute").click()
    return find(page, ".live-responses-table .response").text


def main(bin_dir):
    options = webdriver.ChromeOptions()
    for option in OPTIONS:
        options.add_argument(option)
    with Recorder(bin_dir) as recorder, webdriver.Chrome(options=options) as page:
        recorder.start()
        page.implicitly_wait(60)
        page.get(recorder.url.removesuffix("rule") + "reference/")
        shown = create_rule(page, recorder)
        errors = page.get_log("browser")
        if errors or "Add Rule successful" not in shown:
            sys.exit(f"the page shows {shown}; errors: {errors}")
    print("a rule was created from the page")


run_command(main, *sys.argv[1:])
