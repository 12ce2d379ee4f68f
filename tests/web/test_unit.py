"""Runs the page modules' unit tests (unit_tests.js) in headless Chromium
and reports each failure."""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import browser  # noqa: E402


def main():
    browser.skip_without_chromium()
    root = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..'))
    server, base = browser.serve_directory(root)
    driver = browser.start_browser()
    try:
        driver.get(base + '/tests/web/unit.html')
        results = browser.wait_for('the unit tests to finish',
                                   lambda: driver.execute_script(
                                       'return window.unitResults && window.unitResults.done'
                                       ' ? window.unitResults : null'), timeout=90)
        errors = [entry['message'] for entry in driver.get_log('browser')
                  if entry['level'] == 'SEVERE']
    finally:
        driver.quit()
        server.shutdown()
    for failure in results['failures']:
        print('FAIL:', failure)
    for error in errors:
        print('browser error:', error)
    print('%d passed, %d failed' % (results['passed'], len(results['failures'])))
    # A module that fails to load runs no test at all.
    if results['failures'] or errors or results['passed'] < 20:
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
