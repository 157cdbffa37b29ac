"""The page of `tavnoview html` in a browser: page_test.py TAVNOVIEW FOLDER CHROMIUM. 77 without a browser."""
import json
import os
import shutil
import subprocess
import sys

tavnoview, folder, chromium = sys.argv[1:4]
if not os.path.exists(chromium):
    sys.exit(77)
shutil.rmtree(folder, ignore_errors=True)
os.makedirs(folder)
os.chdir(folder)
evil = '</script><script>document.title="ran"</script><img src=x onerror="document.title=\'ran\'">'
count = 100000
objects = [{"index": i, "class": "Node", "fields": {"name": f"node {i}" if i > 3 else evil, "next": i + 1 if i <= count else None}}
           for i in range(2, count + 2)]
with open("nodes.json", "w") as file:
    json.dump({"archive": {"first": 2}, "objects": objects}, file)
with open("nodes.desc", "w") as file:
    file.write("archive { Node* first; } class Node schema 1 { string name; Node* next; }")
subprocess.run([tavnoview, "archive", "nodes.json", "-d", "nodes.desc", "-o", "nodes"], check=True)
subprocess.run([tavnoview, "html", "nodes", "-d", "nodes.desc", "-o", "nodes.html"], check=True)
with open("nodes.html") as file:
    page = file.read()
with open("clicked.html", "w") as file:
    file.write(page.replace("</body>", """<script>
const later = f => setTimeout(f, 300);
document.querySelector("#tree a").click();
later(() => { document.querySelector("main td a").click();
later(() => { document.body.dataset.followed = location.hash + document.querySelector("#referring a").getAttribute("href");
const search = document.getElementById("search");
search.value = "NODE 77777"; search.dispatchEvent(new Event("input"));
later(() => { document.body.dataset.found = [...document.querySelectorAll("#found a")].map(a => a.textContent).join(); }); }); });
</script></body>"""))
done = subprocess.run([chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                       "--disable-background-networking", "--disable-component-update", "--disable-sync",
                       f"--user-data-dir={folder}/profile", "--virtual-time-budget=10000", "--timeout=60000", "--dump-dom",
                       f"file://{folder}/clicked.html"], capture_output=True, text=True, timeout=240)
dom = done.stdout
assert 'data-followed="#3#2"' in dom, (dom[-3000:], done.stderr[-2000:])
assert 'data-found="Node#77777 node 77777"' in dom
assert "<title>nodes</title>" in dom and "<img" not in dom
