"""The git hooks in .githooks refuse misshapen or misspelt changes, and messages without the form that CONTRIBUTING.md
asks for."""

import os
import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FORMATTED = "int answer() {\n  return 42;\n}\n"
MISSHAPEN = "int answer( ) { return 42; }\n"
MISSPELT = "The module rec" + "ieves records.\n"  # in two pieces, because this file's spelling is checked, too


class Repository:
    """A new repository with this one's hooks and settings."""

    def __init__(self, directory):
        self.directory = directory
        self._environment = {**os.environ, "GIT_CONFIG_GLOBAL": "/dev/null", "GIT_CONFIG_SYSTEM": "/dev/null"}
        # A hook that runs these tests has set these, and git would use the hook's repository.
        for name in ("GIT_DIR", "GIT_INDEX_FILE", "GIT_WORK_TREE", "GIT_PREFIX"):
            self._environment.pop(name, None)
        self.git("init", "--quiet")
        self.git("config", "user.name", "Somebody")
        self.git("config", "user.email", "somebody@example.org")
        shutil.copytree(ROOT / ".githooks", directory / ".githooks")
        for name in (".clang-format", "tests/lint/codespell-ignore.txt"):
            (directory / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, directory / name)
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", "Set out")
        self.git("config", "core.hooksPath", ".githooks")

    def git(self, *arguments, check=True):
        return subprocess.run(["git", *arguments], cwd=self.directory, env=self._environment, capture_output=True,
                              text=True, check=check)

    def stage(self, name, text):
        (self.directory / name).write_text(text)
        self.git("add", name)

    def commit(self, message="Add a file"):
        """Whether git accepted the commit, and what the hooks printed."""
        result = self.git("commit", "--quiet", "--message", message, check=False)
        return result.returncode == 0, result.stdout + result.stderr


@pytest.fixture
def repository(tmp_path):
    return Repository(tmp_path)


@pytest.fixture
def needs(request):
    tool = request.param
    if shutil.which(tool) is None:
        pytest.skip(f"{tool} is not installed")


def test_clean_change_is_committed(repository):
    repository.stage("answer.cpp", FORMATTED)
    assert repository.commit() == (True, "")


@pytest.mark.parametrize("needs", ["clang-format"], indirect=True)
@pytest.mark.parametrize("name", ["answer.c", "answer.cpp", "answer.h"])
def test_misshapen_source_is_refused(repository, needs, name):
    repository.stage(name, MISSHAPEN)
    committed, said = repository.commit()
    assert not committed
    assert f"{name}:1:" in said
    assert "run clang-format -i" in said


@pytest.mark.parametrize("needs", ["codespell"], indirect=True)
def test_misspelt_word_is_refused(repository, needs):
    repository.stage("notes.md", MISSPELT)
    committed, said = repository.commit()
    assert not committed
    assert "notes.md:1:" in said


def test_ignored_word_is_committed(repository):
    repository.stage("notes.md", "An inflight notification.\n")
    assert repository.commit() == (True, "")


@pytest.mark.parametrize("needs", ["clang-format"], indirect=True)
def test_staged_content_counts(repository, needs):
    repository.stage("answer.cpp", FORMATTED)
    (repository.directory / "answer.cpp").write_text(MISSHAPEN)
    assert repository.commit() == (True, "")
    repository.stage("other.cpp", MISSHAPEN)
    (repository.directory / "other.cpp").write_text(FORMATTED)
    assert not repository.commit()[0]


def test_removed_file_is_not_checked(repository):
    repository.git("config", "core.hooksPath", "/nowhere")
    repository.stage("answer.cpp", MISSHAPEN)
    repository.commit()
    repository.git("config", "core.hooksPath", ".githooks")
    repository.git("rm", "--quiet", "answer.cpp")
    assert repository.commit("Remove a file") == (True, "")


def test_missing_tool_is_reported_only(repository, tmp_path):
    programs = tmp_path / "bin"
    programs.mkdir()
    for name in ("awk", "bash", "git", "mktemp", "rm", "sed"):
        (programs / name).symlink_to(shutil.which(name))
    repository._environment["PATH"] = str(programs)
    repository.stage("answer.cpp", MISSHAPEN)
    committed, said = repository.commit()
    assert committed
    assert "clang-format is not installed" in said
    assert "codespell is not installed" in said


LARGE = "line\n" * 11


@pytest.mark.parametrize("message", [
    "x" * 72,
    "Say why",
    "Say why\n\nBecause a reader asks.",
    "ö" * 72,
    "fixup! " + "x" * 72,
    "Merge branch 'with-a-very-long-name-that-nobody-would-have-chosen' into another-one",
])
def test_good_message_is_taken(repository, message):
    repository.stage("notes.md", "line\n")
    assert repository.commit(message) == (True, "")


def test_body_allows_a_large_change(repository):
    repository.stage("notes.md", LARGE)
    assert repository.commit("Add notes\n\nNobody remembered them.") == (True, "")


@pytest.mark.parametrize("message, content, complaint", [
    ("x" * 73, "line\n", "the subject has 73 characters, more than 72"),
    ("Say why\nat once", "line\n", "the second line must be empty"),
    ("Add notes", LARGE, "a change of 11 lines needs a body that says why"),
], ids=["long subject", "no empty line", "no body"])
def test_bad_message_is_refused(repository, message, content, complaint):
    repository.stage("notes.md", content)
    committed, said = repository.commit(message)
    assert not committed
    assert complaint in said


def test_comments_in_a_message_do_not_count(repository):
    repository.stage("notes.md", LARGE)
    (repository.directory / "message").write_text("Add notes\n\n# Lines that git puts there.\n")
    result = repository.git("commit", "--quiet", "--cleanup=strip", "--file", "message", check=False)
    assert result.returncode != 0
    assert "needs a body" in result.stderr
