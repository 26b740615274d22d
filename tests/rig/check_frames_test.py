"""The USB rig's frame check against the faults it exists to catch."""
import pathlib
import types
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/usb-rig/check-frames"
check_frames = types.ModuleType("check_frames")  # not __main__: only defines
exec(compile(SCRIPT.read_text(), str(SCRIPT), "exec"), check_frames.__dict__)

WIDTH, HEIGHT = 2, 480  # 4-byte YUYV rows; 480 rows repeat every 8 frames
ROW = WIDTH * 2


def frames(count, skip=()):
    """The library's pattern from value 0; frames in `skip` are made but not sent."""
    out, value = bytearray(), 0
    for n in range(count + len(skip)):
        frame = bytes(v % 256 for v in range(value, value + HEIGHT) for _ in range(ROW))
        value += HEIGHT
        if n not in skip:
            out += frame
    return bytes(out)


class CheckFrames(unittest.TestCase):
    def verdict(self, data, dropped=0, sequence=None):
        return check_frames.check(data, WIDTH, HEIGHT, 10, "yuyv", dropped, 16, sequence)

    def test_clean_capture_and_counted_losses_pass(self):
        # The last: one frame lost by the host (its sequence number is missing), one by the device.
        sequence = [n for n in range(14) if n not in {4, 9}]
        for passing in (self.verdict(frames(12)), self.verdict(frames(12, skip={4, 5}), 2),
                        self.verdict(frames(12, skip={4, 9}), 1, sequence)):
            self.assertTrue(*passing)

    def test_planted_faults_fail(self):
        size = ROW * HEIGHT
        good = frames(12)
        faults = {
            "duplicated frame": good[:3 * size] + good[2 * size:],
            "removed frame": good[:3 * size] + good[4 * size:],
            "drop beyond the device's count": frames(12, skip={4, 5}),
            "shifted by 5 rows": good[5 * ROW:11 * size + 5 * ROW],
            "corrupted row": good[:100] + b"\x00" + good[101:],
        }
        for name, data in faults.items():
            with self.subTest(name):
                passed, line = self.verdict(data, dropped=1 if "beyond" in name else 0)
                self.assertFalse(passed, line)


if __name__ == "__main__":
    unittest.main()
