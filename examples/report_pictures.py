"""Pictures of parts of reports, taken by a headless Chromium (Debian: chromium, chromium-driver, python3-selenium)."""
import os
import pathlib
import sys
import tempfile

PICTURES = {
    'two_blocks': [('model', 'report_model'), ('convergence', 'report_convergence')],
    'joint_models': [('data', 'report_data')],
    }
"""Of an example, the section of its report that is drawn, and the name of the picture."""

FLAGS = ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-background-networking', '--no-first-run',
         '--disable-component-update', '--disable-sync', '--use-angle=swiftshader', '--enable-unsafe-swiftshader',
         '--force-device-scale-factor=1', '--window-size=1100,2400']


def take(reports, docs, small_copy):
    """Takes the pictures of these reports, {example: HTML file}, into docs/pictures; gives their paths."""
    wanted = [(name, section, picture) for name in reports for section, picture in PICTURES.get(name, [])]
    if not wanted:
        return []
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        sys.exit('pictures of reports: the Debian packages chromium, chromium-driver and python3-selenium are needed')
    made = []
    with tempfile.TemporaryDirectory() as folder:
        options = webdriver.ChromeOptions()
        options.binary_location = '/usr/bin/chromium'
        for flag in FLAGS + ['--user-data-dir=' + os.path.join(folder, 'profile')]:
            options.add_argument(flag)
        driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        try:
            for name, section, picture in wanted:
                driver.get(pathlib.Path(reports[name]).resolve().as_uri())
                shot = os.path.join(folder, picture + '.png')
                driver.find_element('id', section).screenshot(shot)
                target = os.path.join(docs, 'pictures', picture + '.png')
                small_copy(shot, target)
                made.append(target)
        finally:
            driver.quit()
    return made
