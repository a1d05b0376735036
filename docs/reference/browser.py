"""The page of the API reference as the host recorder serves it: browser.py BIN_DIR
The page and all files that it loads are complete and from this recorder, and it works in a browser."""

import pathlib
import re
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(FOLDER.parents[1] / "host/recorder"))
from recorder import PROJECT, Recorder, RuleClient, run_command


def check_files(url):
    for name in ("index.html", "openapi.json", "swagger-ui.css", "swagger-ui-bundle.js"):
        built = (PROJECT / "build/reference" / name).read_bytes()
        answer = RuleClient(url).request("GET", name.replace("index.html", ""))
        if answer.status != 200 or answer.body != built:
            sys.exit(f"{url}{name} is not the file that was built")
        if name == "index.html" and re.search(rb'(src|href)="https?:', built):
            sys.exit(f"{name} loads from elsewhere")


def main(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        url = recorder.url.removesuffix("rule") + "reference/"
        check_files(url)
        subprocess.run(["node", "browser.mjs", url, recorder.user, recorder.password],
                       cwd=FOLDER, check=True)


run_command(main, *sys.argv[1:])
