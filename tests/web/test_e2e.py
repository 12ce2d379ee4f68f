"""The page against the real service: orv-cli serve owning radar-sim's
pseudo-terminal, driven in headless Chromium.

- the page shows the simulated people where radar-sim puts them;
- a real pointer drag on the plane draws an area and Apply sets it (checked
  through the API's read-back of the module);
- display switch, backup download, restore with a preview of its changes,
  cancel one and all areas, the language switch;
- typed corners show the decimetre truncation the module applies;
- a change made through the API appears without a reload, and an Apply on
  the state before it is refused as stale, nothing sent;
- the stream survives a restart of the service and says it reconnects;
- the module unplugged and plugged in again shows lost, then open;
- a second module through the selector: walking an area proposes the
  rectangle holding the walked path, and Apply sets it;
- at 360x740 with touch, a browser preferring Chinese: the page in Chinese,
  no sideways scrolling, touch targets of 40 px or more, a touch drag draws
  an area.
Screenshots at desktop and phone size go to --shots."""

import argparse
import json
import os
import re
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import browser  # noqa: E402
from orvserve import Api, Service, Simulator, free_port  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from browser import wait_for  # noqa: E402

# Where radar-sim holds its people (metres) and the area it starts with
# (the second person stands in it).
PEOPLE = [(1.5, 2.5), (-6.0, 6.8)]
START_AREA = '1,0,-7.0,7.5,-5.0,6.0'


def js(driver, script, *args):
    return driver.execute_script(script, *args)


def canvas_pixel(driver, x, y, dx=0, dy=0):
    """The canvas's colour at a point in metres (plus dx, dy CSS pixels),
    from the page's own mapping."""
    return js(driver, '''
        const page = window.orvPage, canvas = document.getElementById('plane');
        const p = page.plane.toPixel(arguments[0], arguments[1]);
        const r = canvas.width / canvas.clientWidth;
        const x = Math.round((p.x + arguments[2]) * r), y = Math.round((p.y + arguments[3]) * r);
        return Array.from(canvas.getContext('2d').getImageData(x, y, 1, 1).data);
    ''', x, y, dx, dy)


def element_offset(driver, x, y):
    """Offset from the canvas's centre (Selenium's origin for an element) of a
    point in metres."""
    return js(driver, '''
        const page = window.orvPage, canvas = document.getElementById('plane');
        const p = page.plane.toPixel(arguments[0], arguments[1]);
        return [Math.round(p.x - canvas.clientWidth / 2), Math.round(p.y - canvas.clientHeight / 2)];
    ''', x, y)


def drag(driver, start, end, touch=False):
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.actions import interaction
    from selenium.webdriver.common.actions.action_builder import ActionBuilder
    from selenium.webdriver.common.actions.pointer_input import PointerInput
    from selenium.webdriver.common.by import By

    canvas = driver.find_element(By.ID, 'plane')
    js(driver, 'arguments[0].scrollIntoView({block: "center"})', canvas)
    a = element_offset(driver, *start)
    b = element_offset(driver, *end)
    if not touch:
        (ActionChains(driver).move_to_element_with_offset(canvas, a[0], a[1]).click_and_hold()
         .move_by_offset((b[0] - a[0]) // 2, (b[1] - a[1]) // 2)
         .move_by_offset(b[0] - a[0] - (b[0] - a[0]) // 2, b[1] - a[1] - (b[1] - a[1]) // 2)
         .release().perform())
        return
    actions = ActionBuilder(driver, mouse=PointerInput(interaction.POINTER_TOUCH, 'finger'))
    actions.pointer_action.move_to(canvas, a[0], a[1]).pointer_down()
    for k in range(1, 6):
        actions.pointer_action.move_to(canvas, a[0] + (b[0] - a[0]) * k // 5, a[1] + (b[1] - a[1]) * k // 5)
    actions.pointer_action.pointer_up()
    actions.perform()


def click(driver, selector):
    from selenium.webdriver.common.by import By
    element = driver.find_element(By.CSS_SELECTOR, selector)
    js(driver, 'arguments[0].scrollIntoView({block: "center"})', element)
    element.click()


def message(driver):
    return js(driver, 'return document.getElementById("message").textContent')


def page_area(driver, number):
    return js(driver, '''
        const c = window.orvPage.state.config;
        return c ? c.areas.find((a) => a.number === arguments[0]) || null : null;''', number)


def wait_page_ready(driver):
    wait_for('the page to show the module open and both people',
             lambda: js(driver, '''
                const s = window.orvPage && window.orvPage.state;
                return s && s.status && s.status.state === 'open' && s.config && s.targets.length === 2
                    && document.getElementById('stream').dataset.stream === 'open';'''), timeout=60)


def check_people(driver, drawn=PEOPLE):
    """The page holds radar-sim's people, lists them, and draws those in
    drawn as discs at their places."""
    targets = js(driver, 'return window.orvPage.state.targets')
    shown = sorted((round(t[0], 1), round(t[1], 1)) for t in targets)
    assert shown == sorted(PEOPLE), 'page holds %r, radar-sim has %r' % (shown, PEOPLE)
    labels = ['(%.1f,%.1f)' % p for p in PEOPLE]
    wait_for('the list of people', lambda: (lambda text: all(label in text for label in labels))(
        js(driver, 'return document.getElementById("targets").textContent')), timeout=10)
    for x, y in drawn:
        # The disc is drawn in the target colour at the person's place.
        wait_for('the disc at %r' % ((x, y),),
                 lambda: canvas_pixel(driver, x, y, 2, 3)[:3] == [0, 255, 100], timeout=10)


def desktop(args, api, service, sim, shots):
    driver = browser.start_browser(1280, 860)
    try:
        driver.get(service.url)
        wait_page_ready(driver)
        check_people(driver)
        # The start area holds someone: the module reports it occupied and
        # the page fills it in the occupied colour.
        wait_for('area 1 reported occupied', lambda: js(driver, 'return window.orvPage.state.occupied') == [
            True, False, False])
        wait_for('area 1 filled in the occupied colour',
                 lambda: (lambda p: p[0] > p[1] + 30 and p[2] > p[1] + 30)(canvas_pixel(driver, -6.6, 6.2)),
                 timeout=10)

        # A drag draws area 2; Apply sets it on the module.
        click(driver, '#area-number button[data-number="2"]')
        drag(driver, (-1.0, 4.0), (2.0, 1.0))
        assert js(driver, 'return window.orvPage.editor.rect') == {
            'left': -1, 'right': 2, 'top': 4, 'bottom': 1}, js(driver, 'return window.orvPage.editor.rect')
        click(driver, '#apply')
        wait_for('the read-back of area 2', lambda: 'area 2: Detection (-1, 4) – (2, 1)' in message(driver))
        held = api.area(2)
        assert held == {'number': 2, 'type': 'detect', 'from': [-1, 4], 'to': [2, 1]}, held
        # The first person stands in it: the module reports it occupied.
        wait_for('area 2 reported occupied', lambda: js(driver, 'return window.orvPage.state.occupied') == [
            True, True, False])
        # Its lower-right handle resizes it; Reset goes back to what the
        # module holds.
        drag(driver, (2.0, 1.0), (3.0, 0.5))
        rect = js(driver, 'return window.orvPage.editor.rect')
        assert rect == {'left': -1, 'right': 3, 'top': 4, 'bottom': 0.5}, rect
        assert js(driver, 'return document.getElementById("x2").value') == '3'
        click(driver, '#reset')
        rect = js(driver, 'return window.orvPage.editor.rect')
        assert rect == {'left': -1, 'right': 2, 'top': 4, 'bottom': 1}, rect

        # Typed corners: the module keeps decimetres (1.55 -> 1.5), and the
        # page says so.
        click(driver, '#area-number button[data-number="3"]')
        for field, value in (('x1', '3.0'), ('y1', '1.55'), ('x2', '5.0'), ('y2', '0.5')):
            element = driver.find_element(By.ID, field)
            element.clear()
            element.send_keys(value)
        driver.find_element(By.ID, 'y2').send_keys('\t')
        click(driver, '#apply')
        wait_for('the truncation note', lambda: '1.55' in message(driver) and '1.5' in message(driver))
        held = api.area(3)
        assert held['from'] == [3, 1.5] and held['to'] == [5, 0.5], held

        # A change through the API appears without a reload.
        status, body, _ = api.call('PUT', '/api/modules/sim/areas/3',
                                   {'type': 'exclude', 'from': [4.0, 7.0], 'to': [6.0, 5.0]})
        assert status == 200, (status, body)
        wait_for('the API change in the page', lambda: page_area(driver, 3) == {
            'number': 3, 'type': 'exclude', 'from': [4, 7], 'to': [6, 5]})
        wait_for('area 3 drawn in the exclusion colour',
                 lambda: (lambda p: p[1] > p[0] + 40)(canvas_pixel(driver, 5.0, 6.0)), timeout=10)

        # Stale: the page edits area 2, the API changes it meanwhile; Apply
        # is refused and offers a reload, the module keeps the API's area.
        click(driver, '#area-number button[data-number="2"]')
        drag(driver, (-1.0, 4.0), (0.0, 5.0))  # move by (+1, +1)
        status, body, _ = api.call('PUT', '/api/modules/sim/areas/2',
                                   {'type': 'detect', 'from': [-4.0, 3.0], 'to': [-3.0, 2.0]})
        assert status == 200, (status, body)
        wait_for('the page to notice the change',
                 lambda: js(driver, 'return !document.getElementById("stale").hidden'))
        click(driver, '#apply')
        wait_for('the stale refusal', lambda: 'nothing was sent' in js(
            driver, 'return document.getElementById("stale").textContent'))
        assert api.area(2) == {'number': 2, 'type': 'detect', 'from': [-4, 3], 'to': [-3, 2]}, api.area(2)
        click(driver, '#reload')
        wait_for('the reload', lambda: js(driver, 'return window.orvPage.editor.rect') == {
            'left': -4, 'right': -3, 'top': 3, 'bottom': 2})

        driver.save_screenshot(os.path.join(shots, 'serve-desktop.png'))

        # Display type switch.
        click(driver, '#display button[data-display="track"]')
        wait_for('tracking mode on the module',
                 lambda: api.call('GET', '/api/modules/sim/areas')[1].get('display') == 'track')
        wait_for('the switch to show it', lambda: js(
            driver, 'return document.querySelector("#display [data-display=track]").getAttribute("aria-pressed")')
            == 'true')
        click(driver, '#display button[data-display="area"]')
        wait_for('area mode on the module',
                 lambda: api.call('GET', '/api/modules/sim/areas')[1].get('display') == 'area')

        # Backup: the download link gives the module's area file.
        status, held_file, _ = api.call('GET', '/api/modules/sim/areas')
        downloaded = driver.execute_async_script('''
            const done = arguments[arguments.length - 1];
            const a = document.getElementById('download');
            fetch(a.href).then((r) => r.json().then((body) => done({
                body, disposition: r.headers.get('Content-Disposition'), name: a.getAttribute('download')})));
        ''')
        assert downloaded['body'] == held_file, (downloaded, held_file)
        assert re.fullmatch(r'orv-sim-\d{4}-\d{2}-\d{2}\.json', downloaded['name']), downloaded['name']
        assert 'attachment' in (downloaded['disposition'] or '') and downloaded['name'] in downloaded['disposition'], \
            downloaded['disposition']

        # Restore: a file chosen on the page shows what changes, then applies.
        restore = dict(held_file)
        restore['areas'] = [{'number': 1, 'type': 'exclude', 'from': [-7.0, 8.0], 'to': [-6.0, 7.0]},
                            {'number': 2, 'type': 'unset'}]
        path = os.path.join(args.work, 'restore.json')
        with open(path, 'w') as f:
            json.dump(restore, f)
        driver.find_element(By.ID, 'restore-file').send_keys(path)
        wait_for('the preview of changes', lambda: js(
            driver, 'return document.getElementById("restore-changes").children.length') == 2)
        preview = js(driver, 'return document.getElementById("restore-changes").textContent')
        assert 'Exclusion (-7, 8) – (-6, 7)' in preview and 'Not set' in preview, preview
        assert api.area(2)['type'] == 'detect', 'nothing sent before apply'
        click(driver, '#restore-apply')
        wait_for('the restored areas', lambda: api.area(1) == restore['areas'][0] and api.area(2) == restore['areas'][1])
        wait_for('the page to show them', lambda: page_area(driver, 1) == restore['areas'][0])

        # Cancel one area, then all (the second press confirms).
        click(driver, '#area-number button[data-number="3"]')
        click(driver, '#cancel-area')
        wait_for('area 3 cancelled', lambda: api.area(3) == {'number': 3, 'type': 'unset'})
        click(driver, '#cancel-all')
        assert api.area(1)['type'] == 'exclude', 'one press cancels nothing'
        click(driver, '#cancel-all')
        wait_for('all areas cancelled',
                 lambda: all(api.area(n) == {'number': n, 'type': 'unset'} for n in (1, 2, 3)))
        wait_for('the page to show none', lambda: js(
            driver, 'return window.orvPage.state.config.areas.every((a) => a.type === "unset")'))

        # Chinese, switched on the page.
        from selenium.webdriver.support.ui import Select
        Select(driver.find_element(By.ID, 'language')).select_by_value('zh')
        wait_for('Chinese words', lambda: js(
            driver, 'return document.querySelector(".legend .detect").textContent') == '检测区域')
        assert js(driver, 'return document.documentElement.lang') == 'zh-CN'
        # Reloaded (the address no longer carries the token; the cookie
        # does): the choice of language stays.
        assert 'token=' not in driver.current_url, driver.current_url
        driver.refresh()
        wait_page_ready(driver)
        assert js(driver, 'return document.querySelector(".legend .detect").textContent') == '检测区域'
        Select(driver.find_element(By.ID, 'language')).select_by_value('en')
        wait_for('English again', lambda: js(
            driver, 'return document.querySelector(".legend .detect").textContent') == 'Detection')

        # The service restarts: the page says it reconnects, then is live again.
        service.stop()
        wait_for('the reconnecting note', lambda: js(
            driver, 'return document.getElementById("stream").dataset.stream') == 'reconnecting')
        service.start()
        wait_page_ready(driver)
        status, body, _ = api.call('DELETE', '/api/modules/sim/areas/1')
        assert status == 200, (status, body)
        wait_for('a change after the restart', lambda: page_area(driver, 1) == {'number': 1, 'type': 'unset'})

        # The module is unplugged: the page shows it lost; plugged in again,
        # open, without a reload.
        state = lambda: js(driver, 'return document.getElementById("state").dataset.state')
        sim.stop()
        wait_for('the page to show the module lost', lambda: state() == 'lost')
        # A write while the module is away is refused, and the page says so.
        click(driver, '#area-number button[data-number="1"]')
        click(driver, '#cancel-area')
        wait_for('the refusal of a write while lost', lambda: 'not open' in message(driver))
        sim.start()
        wait_for('the page to show the module open again', lambda: state() == 'open')
        wait_page_ready(driver)
        # The module plugged in holds radar-sim's starting area again (all
        # were cancelled before): the page shows what the module holds now.
        wait_for('the plugged-in module\'s areas', lambda: page_area(driver, 1) == {
            'number': 1, 'type': 'detect', 'from': [-7, 7.5], 'to': [-5, 6]})

        walk_an_area(driver, api, shots)
    finally:
        driver.quit()


def walk_an_area(driver, api, shots):
    """The second module, one person walking: the selector switches to it,
    a walk proposes a rectangle holding the walked path, Apply sets it."""
    from selenium.webdriver.support.ui import Select
    Select(driver.find_element(By.ID, 'module')).select_by_value('walker')
    wait_for('the walker module in the page', lambda: js(driver, '''
        const s = window.orvPage.state;
        return s.id === 'walker' && s.status && s.status.state === 'open' && s.targets.length === 1
            && document.getElementById('stream').dataset.stream === 'open';'''), timeout=60)
    click(driver, '#area-number button[data-number="2"]')
    click(driver, '#walk')
    wait_for('30 walked points', lambda: js(driver, 'return window.orvPage.walk.points.length') >= 30, timeout=60)
    click(driver, '#walk')
    points = js(driver, 'return window.orvPage.walk.points')
    rect = js(driver, 'return window.orvPage.editor.rect')
    assert rect, 'no proposal from %d points' % len(points)
    inside = [p for p in points if rect['left'] - 1e-9 <= p['x'] <= rect['right'] + 1e-9
              and rect['bottom'] - 1e-9 <= p['y'] <= rect['top'] + 1e-9]
    assert len(inside) >= 0.9 * len(points), 'proposal %r holds %d of %d points' % (rect, len(inside), len(points))
    status = js(driver, 'return document.getElementById("walk-status").textContent')
    assert 'Proposed' in status, status
    click(driver, '#apply')
    wait_for('the walked area on the module', lambda: api.area(2, 'walker') == {
        'number': 2, 'type': 'detect', 'from': [rect['left'], rect['top']], 'to': [rect['right'], rect['bottom']]})
    driver.save_screenshot(os.path.join(shots, 'serve-walk.png'))
    Select(driver.find_element(By.ID, 'module')).select_by_value('sim')
    wait_page_ready(driver)


def phone(args, api, service, shots):
    # A phone whose browser prefers Chinese gets the page in Chinese.
    driver = browser.start_browser(360, 740, phone=True, language='zh-CN')
    try:
        driver.get(service.url)
        wait_page_ready(driver)
        check_people(driver)
        assert js(driver, 'return navigator.language').startswith('zh'), js(driver, 'return navigator.language')
        assert js(driver, 'return document.querySelector(".legend .detect").textContent') == '检测区域'
        assert js(driver, 'return document.getElementById("apply").textContent') == '应用'
        assert js(driver, 'return window.innerWidth') == 360
        width = js(driver, 'return document.documentElement.scrollWidth')
        assert width <= 360, 'sideways scrolling: the page is %d px wide' % width
        small = js(driver, '''
            const out = [];
            for (const el of document.querySelectorAll('button, select, input, a, label.button, label.check')) {
                const r = el.getBoundingClientRect();
                const hidden = el.offsetParent === null || el.classList.contains('hidden-file')
                    || (el.type === 'checkbox');
                if (!hidden && (r.width < 40 || r.height < 40))
                    out.push(`${el.id || el.textContent.trim()}: ${r.width}x${r.height}`);
            }
            return out;''')
        assert not small, 'touch targets under 40 px: %r' % small

        # A touch drag draws area 1 and Apply sets it.
        click(driver, '#area-number button[data-number="1"]')
        drag(driver, (1.0, 7.0), (4.0, 5.0), touch=True)
        # At 20 pixels a metre one pixel is half a decimetre: the corners
        # land within a decimetre of the finger.
        rect = js(driver, 'return window.orvPage.editor.rect')
        expected = {'left': 1, 'right': 4, 'top': 7, 'bottom': 5}
        assert all(abs(rect[k] - v) <= 0.1 + 1e-9 for k, v in expected.items()), rect
        click(driver, '#apply')
        wait_for('the read-back of area 1', lambda: '模块保存的区域 1' in message(driver))
        held = api.area(1)
        assert held == {'number': 1, 'type': 'detect', 'from': [rect['left'], rect['top']],
                        'to': [rect['right'], rect['bottom']]}, (held, rect)
        width = js(driver, 'return document.documentElement.scrollWidth')
        assert width <= 360, 'sideways scrolling after editing: %d px' % width
        # Showing -4..4 m makes the plane larger on the narrow screen.
        from selenium.webdriver.support.ui import Select
        scale = js(driver, 'return window.orvPage.plane.scale')
        Select(driver.find_element(By.ID, 'x-range')).select_by_value('4')
        wait_for('a larger plane', lambda: js(driver, 'return window.orvPage.plane.scale') > 1.8 * scale)
        width = js(driver, 'return document.documentElement.scrollWidth')
        assert width <= 360, 'sideways scrolling with the larger plane: %d px' % width
        check_people(driver, drawn=[p for p in PEOPLE if abs(p[0]) <= 4])
        js(driver, 'window.scrollTo(0, 0)')
        driver.save_screenshot(os.path.join(shots, 'serve-phone.png'))
    finally:
        driver.quit()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--orv-cli', required=True)
    parser.add_argument('--radar-sim', required=True)
    parser.add_argument('--shots', required=True)
    args = parser.parse_args()
    browser.skip_without_chromium()
    os.makedirs(args.shots, exist_ok=True)
    work = tempfile.mkdtemp(prefix='orv-web-e2e-')
    args.work = work
    link = os.path.join(work, 'module')
    sim = Simulator(args.radar_sim, link, ['--rate', '10', '--area', START_AREA]
                    + sum((['--fixed', '%s,%s' % p] for p in PEOPLE), []))
    walker_link = os.path.join(work, 'walker')
    walker = Simulator(args.radar_sim, walker_link, ['--rate', '10', '--targets', '1', '--seed', '5'])
    service = None
    try:
        sim.start()
        walker.start()
        port = free_port()
        service = Service(args.orv_cli, [('sim', link), ('walker', walker_link)], port,
                          os.path.join(work, 'token'), os.path.join(work, 'serve.log'))
        service.start()
        api = Api('http://127.0.0.1:%d' % port, service.token())
        wait_for('the module to be open', lambda: api.call('GET', '/api/modules/sim')[1].get('state') == 'open',
                 timeout=60)
        desktop(args, api, service, sim, args.shots)
        phone(args, api, service, args.shots)
    except BaseException:
        log = os.path.join(work, 'serve.log')
        if os.path.exists(log):
            with open(log) as f:
                print('orv-cli serve said:\n' + f.read()[-4000:])
        raise
    finally:
        if service:
            service.stop()
        sim.stop()
        walker.stop()
        shutil.rmtree(work, ignore_errors=True)
    print('page end to end: all checks passed')
    return 0


if __name__ == '__main__':
    sys.exit(main())
