# Renders the simulator's web page in headless Chromium and checks the DOM against --json.
# Usage: timeline_page_test.py IAM_BINARY SOURCE_DIR WORK_DIR
# Leaves WORK_DIR/first-week.png, the page at 1280x800, for a person to look at.
import json
import os
import shutil
import subprocess
import sys
from html.parser import HTMLParser

IAM, SOURCE, WORK = (os.path.abspath(a) for a in sys.argv[1:4])
HOSTILE = '</script><b>x</b>"\'&'
failures = []


def check(condition, message):
    if not condition:
        failures.append(message)


class Dom(HTMLParser):
    # A dumped page as a tree: each element's tag, attributes, children and all the text inside.
    def __init__(self, text):
        super().__init__()
        self.elements, self.open = [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        element = {'tag': tag, **dict(attrs), 'text': '', 'children': []}
        if self.open:
            self.open[-1]['children'].append(element)
        self.elements.append(element)
        self.open.append(element)

    def handle_endtag(self, tag):
        while self.open and self.open.pop()['tag'] != tag:
            pass

    def handle_data(self, data):
        for element in self.open:
            element['text'] += data

    def find(self, tag=None, cls=None, within=None, **attrs):
        return [e for e in (below(within) if within else self.elements) if (tag is None or e['tag'] == tag)
                and (cls is None or cls in e.get('class', '').split())
                and all(e.get(k.replace('_', '-')) == v for k, v in attrs.items())]


def below(element):
    for child in element['children']:
        yield child
        yield from below(child)


def chromium(*args):
    browser = shutil.which('chromium') or shutil.which('chromium-browser')
    if not browser:
        sys.exit('FAIL: chromium is not installed (scripts/setup-deps.sh installs it)')
    return subprocess.run([browser, '--headless', '--disable-gpu', '--no-sandbox', '--enable-logging=stderr',
                           '--v=0', '--window-size=1280,800', '--user-data-dir=' + os.path.join(WORK, 'profile'),
                           *args], capture_output=True, text=True, timeout=120)


def render(name, campaign, journey=os.path.join(SOURCE, 'examples/first-week.jsonl')):
    page = os.path.join(WORK, name + '.html')
    run = subprocess.run([IAM, 'simulate', '--campaign', campaign, '--ranked', os.path.join(SOURCE, 'examples/ranked.json'),
                          '--journey', journey, '--json', '--html', page],
                         capture_output=True, text=True, timeout=120)
    check(run.returncode == 0, name + ': iam simulate failed: ' + run.stderr)
    lines = [json.loads(line) for line in run.stdout.splitlines()]
    shown = chromium('--dump-dom', 'file://' + page)
    dom = Dom(shown.stdout)
    if not dom.find('html'):
        sys.exit('FAIL: %s: chromium showed nothing: %s' % (name, shown.stderr[-2000:]))
    root = dom.find('html')[0]
    check(root.get('data-rendered') == str(len(lines)), name + ': the page did not finish drawing')
    check('data-script-error' not in root, name + ': script error: ' + str(root.get('data-script-error')))
    check('Uncaught' not in shown.stderr, name + ': ' + ' '.join(l for l in shown.stderr.splitlines() if 'Uncaught' in l))
    return page, lines, dom


def compare_marks(name, lines, dom):
    for kind in ('display', 'open', 'review', 'fetch'):
        seen = len(dom.find('div', 'mark', data_kind=kind))
        expected = sum(line['kind'] == kind for line in lines)
        check(seen == expected, '%s: %d %s marks for %d lines' % (name, seen, kind, expected))
    shown = sorted((e['data-advertisement'], e['data-route']) for e in dom.find('div', 'mark', data_kind='display'))
    expected = sorted((l['advertisement'], l['route']) for l in lines if l['kind'] == 'display')
    check(shown == expected, name + ': display marks %s, lines %s' % (shown, expected))
    check(not dom.find('div', 'aggregate'), name + ': marks aggregated at 1280x800')


def compare_stats(name, lines, dom):
    advertisements = {}
    for row in (row for row in dom.find('tr') if 'data-advertisement' in row):
        cells = dom.find('td', within=row)
        check(cells[0]['text'] == row['data-advertisement'], name + ': row named ' + cells[0]['text'])
        record = dict(zip(('impressions', 'clicks', 'dismisses', 'postpones'), (int(c['text']) for c in cells[1:5])))
        record['triggers'] = {e['data-trigger']: int(e['text'].rsplit(': ', 1)[1]) for e in dom.find('span', within=cells[5])}
        advertisements[row['data-advertisement']] = record
    cells = [c['text'] for c in dom.find('td', within=dom.find(id='stats-events')[0])]
    events = {key: int(count) for key, count in zip(cells[::2], cells[1::2])}
    launches = int(dom.find(id='stats-launches')[0]['text'])
    stats = lines[-1]
    check({'kind': 'stats', 'advertisements': advertisements, 'events': events, 'launches': launches} ==
          {k: stats.get(k) for k in ('kind', 'advertisements', 'events', 'launches')},
          name + ': statistics table %s %s %s differs from %s' % (advertisements, events, launches, stats))


def main():
    os.makedirs(WORK, exist_ok=True)
    page, lines, dom = render('first-week', os.path.join(SOURCE, 'examples/campaign.json'))
    check(sum(l['kind'] in ('display', 'open') for l in lines) > 5, 'first-week: too little shown to test')
    compare_marks('first-week', lines, dom)
    compare_stats('first-week', lines, dom)
    screenshot = os.path.join(WORK, 'first-week.png')
    if os.path.exists(screenshot):
        os.remove(screenshot)
    chromium('--screenshot=' + screenshot, 'file://' + page)
    check(os.path.exists(screenshot) and open(screenshot, 'rb').read(8) == b'\x89PNG\r\n\x1a\n', 'no screenshot')

    # Campaign texts holding markup and quotes stay text.
    with open(os.path.join(SOURCE, 'examples/campaign.json')) as f:
        campaign = json.load(f)
    for advertisement in campaign['advertisements']:
        if advertisement['id'] == 'level-interstitial':
            advertisement['id'] = HOSTILE
            advertisement['triggers'][0]['id'] = HOSTILE
            advertisement['resources']['dfpInterstitialIdentifier'] = HOSTILE
    with open(os.path.join(WORK, 'hostile.json'), 'w') as f:
        json.dump(campaign, f)
    page, lines, dom = render('hostile', os.path.join(WORK, 'hostile.json'))
    check(any(l['kind'] == 'display' and l['advertisement'] == HOSTILE for l in lines), 'hostile: never shown')
    check(not dom.find('b'), 'hostile: an advertisement id became markup')
    check([e['text'] for e in dom.find('div', 'name') if e['text'] == HOSTILE] == [HOSTILE], 'hostile: no lane named by it')
    compare_marks('hostile', lines, dom)
    compare_stats('hostile', lines, dom)

    # Ten thousand steps: marks that would overlap are drawn as one, and none is lost.
    journey = ['{"launch": "1.0"}'] + ['{"event": "levelComplete"}'] * 3 + ['{"tap": "ok"}']
    while len(journey) < 10000:
        journey += ['{"event": "levelComplete"}'] * 3 + ['{"tap": "dismiss"}', '{"event": "openShop"}', '{"background": true}',
                    '{"wait": 1800}', '{"foreground": true}', '{"targets": "newsFeed"}', '{"launch": "1.0"}']
    with open(os.path.join(WORK, 'long.jsonl'), 'w') as f:
        f.write('\n'.join(journey[:10000]))
    page, lines, dom = render('long', os.path.join(SOURCE, 'examples/campaign.json'), os.path.join(WORK, 'long.jsonl'))
    aggregates = dom.find('div', 'aggregate')
    check(len(aggregates) > 20 and len(dom.find('div', 'mark')) < 1000, 'long: %d aggregates' % len(aggregates))
    for kind in ('display', 'fetch', 'review', 'targets', 'tap'):
        expected = sum(line['kind'] == kind for line in lines) + sum('"tap"' in step for step in journey[:10000]) * (kind == 'tap')
        seen = len(dom.find('div', 'mark', data_kind=kind)) + sum(int(e.get('data-count-' + kind, 0)) for e in aggregates)
        check(seen == expected, 'long: %d %s marks for %d' % (seen, kind, expected))


try:
    main()
except Exception as error:  # a page too broken to read is one more failure, reported with the rest
    failures.append('the page could not be read: %r' % error)
for failure in failures:
    print('FAIL:', failure)
print('timeline page: %d failures; screenshot %s' % (len(failures), os.path.join(WORK, 'first-week.png')))
sys.exit(1 if failures else 0)
