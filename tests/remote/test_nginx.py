"""Files on a real server: the same points as of local files, with few requests."""

import zipfile

import pytest

from conftest import WINDOW, run, unpack

# Options, format, and how many requests and which share of the file a query may need.
QUERIES = {
    "all": ([], "las", 20, 1.05),
    "one thread": (["-j", "1"], "las", 20, 1.05),
    "window": ([*WINDOW, "-j", "1"], "txt", 12, 0.2),
    "sample": (["-s", "64", "-j", "4"], "txt", 6, 0.1),
    "channels": ([*WINDOW, "-ofld", "xyzc"], "txt", 12, 0.1),
}
PLACES = [*(("", query) for query in QUERIES), ("/few", "window"), ("/one", "channels")]


def unpack_both(source, url, tmp_path, options=(), ending="txt", **variables):
    local = unpack(source, tmp_path / f"local.{ending}", *options)
    assert unpack(url, tmp_path / f"remote.{ending}", *options, **variables) == local
    assert local.count(b"\n") > 100


@pytest.mark.parametrize("place, query", PLACES)
def test_points_are_those_of_the_local_file(www, nginx, tmp_path, query, place):
    options, ending, requests, share = QUERIES[query]
    nginx.take_log()
    unpack_both(www / "big.vxl", f"{nginx.url}{place}/big.vxl", tmp_path, options, ending)
    log = nginx.take_log()
    assert place == "/one" or len(log) <= requests
    # A server that takes fewer ranges than asked sends the whole file.
    assert (200 in [status for _, status, _, _ in log]) == (place != "")
    received = sum(size for _, status, size, _ in log if status == 206)
    assert received < share * (www / "big.vxl").stat().st_size


def test_description_needs_few_requests_and_they_are_counted(www, nginx):
    nginx.take_log()
    status, said = run("vxinfo", f"{nginx.url}/big.vxl", "-V")
    log = nginx.take_log()
    assert (status, len(log) <= 3) == (0, True)
    assert f"remote: {len(log)} requests, {sum(size for _, _, size, _ in log)} bytes" in said
    remote, local = (run("vxinfo", f"{place}/big.vxl")[1].splitlines()[2:] for place in (nginx.url, www))
    assert remote == [line for line in local if "File Size" not in line]


@pytest.mark.parametrize("path", ["medium.las", "medium.laz", "medium.vxl?token=a.b", "none/small.vxl",
                                  "301/medium.vxl"])
def test_formats_and_places(www, nginx, tmp_path, path):
    name = path.split("/")[-1].split("?")[0]
    assert run("vxdiff", f"{nginx.url}/{path}", www / name) [0] == 0
    assert run("vxdiff", f"{nginx.url}/{path}", www / "big.vxl")[0] == 1


def test_virtual_file_systems(www, nginx, tmp_path):
    archive = tmp_path / "a.zip"
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as target:
        target.write(www / "medium.vxl", "in/medium.vxl")
    # A bucket without a signature is a folder of a server.
    bucket = {"AWS_NO_SIGN_REQUEST": "YES", "AWS_S3_ENDPOINT": nginx.url.removeprefix("http://"), "AWS_HTTPS": "NO",
              "AWS_VIRTUAL_HOSTING": "FALSE"}
    for name in f"/vsicurl/{nginx.url}/medium.vxl", f"/vsizip/{archive}/in/medium.vxl", "s3://few/medium.vxl":
        unpack_both(www / "medium.vxl", name, tmp_path, WINDOW, **bucket)


def test_sets_of_remote_files_need_permission(www, nginx, tmp_path):
    """The author of a list or an index could otherwise choose what the program requests."""
    urls = [f"{nginx.url}/{name}" for name in ("medium.vxl", "small.vxl", "medium.laz")]
    locals_ = [str(www / url.rsplit("/", 1)[1]) for url in urls]
    for kind, names in ("remote", urls), ("local", locals_):
        tmp_path.joinpath(f"{kind}.list").write_text("\n".join(names) + "\n")
        status, said = run("vxindex", "-o", f"{kind}.index", *names, cwd=tmp_path)
        assert status == 0, said
    for ending in "list", "index":
        nginx.take_log()
        packed = [tmp_path / f"{kind}.vxl" for kind in ("local", "remote")]
        pack = ["vxpack", "-f", *WINDOW]
        status, said = run(*pack, tmp_path / f"remote.{ending}", "-o", packed[1])
        assert (status, "-allowRemote reads such files" in said, nginx.take_log()) == (1, True, []), said
        assert run(*pack, tmp_path / f"local.{ending}", "-o", packed[0])[0] == 0
        assert run(*pack, tmp_path / f"remote.{ending}", "-o", packed[1], "-allowRemote")[0] == 0
        assert packed[0].read_bytes() == packed[1].read_bytes()
        for path in packed:
            path.unlink()
    assert "-allowRemote reads such files" in run("vxindex", "-check", "-o", tmp_path / "remote.index")[1]
    assert run("vxindex", "-check", "-o", tmp_path / "remote.index", "-allowRemote")[0] == 0
    for ending in "list", "index":
        # A set at a URL would be read without a base for its names.
        www.joinpath(f"set.{ending}").write_bytes(tmp_path.joinpath(f"local.{ending}").read_bytes())
        status, said = run("vxinfo", f"{nginx.url}/set.{ending}", "-allowRemote")
        assert (status, "must be a file" in said) == (1, True)


def test_output_of_pack_is_in_the_current_folder(www, nginx, tmp_path):
    status, said = run("vxpack", f"{nginx.url}/medium.laz?token=a/b", "-V", cwd=tmp_path)
    assert (status, "remote: " in said) == (0, True), said
    assert run("vxdiff", tmp_path / "medium.vxl", www / "medium.las")[0] == 0


@pytest.mark.parametrize("path, message", [
    ("none/medium.vxl", "does not support requests for ranges"),
    ("denied/medium.vxl", "403 (access is denied)"),
    ("missing.vxl", "404 (there is no such file)"),
    ("loop/medium.vxl", "redirects"),
    ("empty.vxl", "file header"),
])
def test_refusals_name_the_file_and_the_reason(nginx, tmp_path, path, message):
    status, said = run("vxunpack", "-i", f"{nginx.url}/{path}", "-o", tmp_path / "a.txt")
    assert (status, message in said, list(tmp_path.iterdir())) == (1, True, []), said
    assert path in said or path == "empty.vxl"  # is no file of the format, as with a local file
