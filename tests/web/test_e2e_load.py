"""The page under a heavy stream: 16 people at 100 reports a second from
radar-sim through orv-cli serve. The page must take every report it is sent
and still draw at most once per display frame."""

import argparse
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import browser  # noqa: E402
from browser import wait_for  # noqa: E402
from orvserve import Api, Service, Simulator, free_port  # noqa: E402

PEOPLE = 16
RATE = 100
REPORTS = 300


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--orv-cli', required=True)
    parser.add_argument('--radar-sim', required=True)
    args = parser.parse_args()
    browser.skip_without_chromium()
    work = tempfile.mkdtemp(prefix='orv-web-load-')
    link = os.path.join(work, 'module')
    # 16 people at 100 reports a second need more than 9600 baud.
    sim = Simulator(args.radar_sim, link, ['--baud', '115200', '--rate', str(RATE), '--targets', str(PEOPLE)])
    service = None
    driver = None
    try:
        sim.start()
        port = free_port()
        service = Service(args.orv_cli, [('crowd', link)], port, os.path.join(work, 'token'),
                          os.path.join(work, 'serve.log'), ['--baud', '115200'])
        service.start()
        api = Api('http://127.0.0.1:%d' % port, service.token())
        wait_for('the module to be open', lambda: api.call('GET', '/api/modules/crowd')[1].get('state') == 'open',
                 timeout=60)
        driver = browser.start_browser(1280, 800)
        driver.get(service.url)
        wait_for('16 people on the page', lambda: driver.execute_script(
            'return window.orvPage && window.orvPage.state.targets.length === 16'), timeout=60)
        # Reports, draws and display frames, counted in the page until it has
        # taken REPORTS reports (at most 30 s).
        counts = driver.execute_async_script('''
            const [wanted, limit] = [arguments[0], arguments[1]];
            const done = arguments[arguments.length - 1];
            const page = window.orvPage;
            const start = {reports: page.reports, draws: page.scheduler.draws, time: performance.now()};
            let frames = 0;
            const frame = () => {
                ++frames;
                const seconds = (performance.now() - start.time) / 1000;
                if (page.reports - start.reports < wanted && seconds < limit)
                    requestAnimationFrame(frame);
                else
                    done({reports: page.reports - start.reports, draws: page.scheduler.draws - start.draws,
                          frames, seconds});
            };
            requestAnimationFrame(frame);
        ''', REPORTS, 30)
    except BaseException:
        log = os.path.join(work, 'serve.log')
        if os.path.exists(log):
            with open(log) as f:
                print('orv-cli serve said:\n' + f.read()[-4000:])
        raise
    finally:
        if driver:
            driver.quit()
        if service:
            service.stop()
        sim.stop()
        shutil.rmtree(work, ignore_errors=True)
    print('in %(seconds).1f s: %(reports)d reports, %(draws)d draws, %(frames)d display frames' % counts)
    # The page took the stream (a loaded machine may lag), faster than it
    # showed frames, and no frame held two draws.
    assert counts['reports'] >= REPORTS, 'the page took only %r' % counts
    assert counts['reports'] > counts['frames'], 'reports no faster than frames: %r' % counts
    assert 0 < counts['draws'] <= counts['frames'] + 1, counts
    return 0


if __name__ == '__main__':
    sys.exit(main())
