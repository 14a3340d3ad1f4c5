"""Takes a picture of the page as a PNG. For scripts/isolate, as tests/page_test.py.

usage: page_picture.py BUILD-FOLDER FILE"""

import os
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / 'tests'))
from page_test import PageTest, wait_for  # noqa: E402


class Picture(PageTest):
    def runTest(self):
        self.browser.set_window_size(1280, 1100)
        self.open()
        self.find('[data-mode=single_2]').click()
        wait_for(self.changed)
        self.type('system/contact', 'Studio 1')
        self.ask('window.scrollTo(0, 0)')
        self.browser.save_screenshot(sys.argv[2])


if __name__ == '__main__':
    os.umask(0o022)
    PageTest.build = pathlib.Path(sys.argv[1]).resolve()
    sys.exit(not unittest.TextTestRunner().run(unittest.TestSuite([Picture()])).wasSuccessful())
