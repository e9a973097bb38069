#!/usr/bin/env python3
"""What a distribution or Flathub takes from Orvane's tree.

packaging_test.py install BUILD_DIR   installs into a fresh prefix and checks
                                      that every file lands where the desktop
                                      looks for it.
packaging_test.py flatpak MANIFEST    checks the Flatpak manifest: GNOME
                                      runtime, the app's id and command, and
                                      no permission beyond those Orvane uses.
"""
import json
import os
import subprocess
import sys
import tempfile

APP_ID = "app.orvane.Orvane"


def check_install(build_dir):
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run(["cmake", "--install", build_dir, "--prefix", prefix],
                       check=True, stdout=subprocess.DEVNULL)
        expected = [
            "bin/orvane",
            "lib/orvane/web-extensions/liborvane_webext.so",
            f"share/applications/{APP_ID}.desktop",
            f"share/dbus-1/services/{APP_ID}.service",
            f"share/metainfo/{APP_ID}.metainfo.xml",
            f"share/icons/hicolor/scalable/apps/{APP_ID}.svg",
            f"share/icons/hicolor/symbolic/apps/{APP_ID}-symbolic.svg",
            "share/doc/orvane/copyright",
            "share/locale/fr/LC_MESSAGES/orvane.mo",
        ]
        missing = [path for path in expected if not os.path.isfile(os.path.join(prefix, path))]
        assert not missing, f"not installed: {missing}"
        with open(os.path.join(prefix, f"share/applications/{APP_ID}.desktop")) as entry:
            keys = dict(line.strip().split("=", 1) for line in entry if "=" in line)
        assert keys["StartupWMClass"] == APP_ID, "docks match the window by the app id"
        assert keys["DBusActivatable"] == "true"


def check_flatpak(manifest_path):
    with open(manifest_path) as file:
        manifest = json.load(file)
    assert manifest["id"] == APP_ID
    assert (manifest["runtime"], manifest["sdk"]) == ("org.gnome.Platform", "org.gnome.Sdk")
    assert manifest["command"] == "orvane"
    allowed = {
        "--share=network", "--share=ipc", "--socket=wayland", "--socket=fallback-x11",
        "--device=dri", "--filesystem=xdg-download", "--talk-name=org.freedesktop.FileManager1",
    }
    extra = set(manifest["finish-args"]) - allowed
    assert not extra, f"permissions Orvane does not use: {sorted(extra)}"
    assert {"--share=network", "--filesystem=xdg-download"} <= set(manifest["finish-args"])
    orvane = manifest["modules"][-1]
    assert orvane["name"] == "orvane" and "-DORVANE_BUILD_TESTS=OFF" in orvane["config-opts"]


if __name__ == "__main__":
    {"install": check_install, "flatpak": check_flatpak}[sys.argv[1]](sys.argv[2])
