"""The links between the documents: each leads to a file of this project, and to a heading that is there."""

import re
import unittest

import project

DOCUMENTS = [project.SOURCE / "README.md", project.SOURCE / "HACKING.md",
             *sorted((project.SOURCE / "docs").rglob("*.md"))]
LINK = re.compile(r'\]\(([^)\s]+)\)|(?:src|srcset)="([^"]+)"')


def prose(document):
    return re.sub(r"^```.*?^```$", "", document.read_text(encoding="utf-8"), flags=re.S | re.M)


def anchors(document):
    """The anchors of a document's headings, as they are made on the web."""
    headings = re.findall(r"^#+ (.*)$", prose(document), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


class Links(unittest.TestCase):
    def test_every_link_leads_somewhere(self):
        count = 0
        for document in DOCUMENTS:
            for groups in LINK.findall(prose(document)):
                link = "".join(groups)
                if re.match(r"https?:", link):
                    continue
                count += 1
                path, _, anchor = link.partition("#")
                target = document.parent / path if path else document
                with self.subTest(document=document.name, link=link):
                    self.assertTrue(target.resolve().is_relative_to(project.SOURCE.resolve()))
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target))
        self.assertGreater(count, 30)

    def test_every_document_is_in_the_index(self):
        index = (project.SOURCE / "docs" / "README.md").read_text(encoding="utf-8")
        for document in DOCUMENTS:
            if document.parent.name == "docs" and document.name != "README.md":
                self.assertIn(f"({document.name})", index)

    def test_every_manual_page_is_in_the_index(self):
        index = (project.SOURCE / "docs" / "README.md").read_text(encoding="utf-8")
        for page in (project.SOURCE / "man").iterdir():
            self.assertRegex(index, rf"`man ({page.suffix[1:]} )?{page.stem}`")


if __name__ == "__main__":
    unittest.main()
