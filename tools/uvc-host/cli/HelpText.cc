#include "cli/HelpText.h"

namespace uvc_host {

namespace {

const char kMain[] =
    R"(usage: uvc-host COMMAND [OPTIONS]

Runs the stream client library in this process, plays the USB host in front
of it (through the compositor-bridge stand-in) and reports what arrives.

commands:
  stream     configure streams, receive frames, write them, summarise
  control    send camera-control messages and print the replies
  frames     make a set of recorded frame files (frames make ...)
  scenario   play a timed script of host events with expectations

"uvc-host COMMAND --help" describes each command.
exit status: 0 success, 1 failure (run or expectation), 2 usage error.
)";

const char kStream[] =
    R"(usage: uvc-host stream [OPTIONS]

Configures one or more streams (streaming on), sends the stream-changed
hot-plug event, shows progress and ends with a summary per stream: frames,
empty frames, achieved fps, frame interval median / p99 / max, bytes and
connection recoveries.

options:
  --stream ID:IDX      stream to run, repeatable (default 0:0); "all" runs
                       the eight streams 0:0..0:3 and 1:0..1:3 with one
                       hot-plug event for stream id 255
  --size WxH           frame size (default 640x480; each side 1..8192)
  --fps N              frame rate, 1..240 (default 30)
  --format F           YUYV, YU12, NV12, MJPG, H264 or S264 (default YUYV)
  --duration SEC       run this long (default 5 s when --frames is not given)
  --frames N           run until every stream received N frames
  --timeout SEC        with --frames: give up after SEC (default N / fps + 5)
  --frames-dir DIR     root of the recorded frame files (MJPG without --jpeg,
                       H264, S264): DIR/mjpeg/W_H/frameN.jpg, DIR/W_H/frameN
  --jpeg               MJPG: compress the test pattern instead of reading files
  --output PATH        write the frames: raw video (YUYV, YU12, NV12),
                       concatenated JPEG (MJPG) or Annex-B H.264; with several
                       streams the key goes into the name (out-0_1.yuv)
  --save-frame N PATH  save frame N (counted from 0) as a JPEG image;
                       repeatable; not for H.264
  --fps-tolerance PCT  allowed deviation of the achieved rate (default 10)
  --json               print the summary as one JSON object, no progress
  --no-progress        no progress lines
  --verbose            pass the library's console output to stderr
  --help               this text

Ctrl-C ends the run early and still prints the summary.
The run passes (exit 0) when every stream received frames (with --frames:
at least N in time), none of them empty, at an achieved rate within the
tolerance of --fps (checked from 3 frames on), and all output was written.
)";

const char kControl[] =
    R"(usage: uvc-host control [OPTIONS] 'JSON' ...

Sends camera-control messages to the library, one after the other, and
prints every reply it sends back, one JSON text per line on stdout.

options:
  --file FILE       also send the messages of FILE, one JSON object per
                    line (blank lines and lines starting with # skipped)
  --stream ID:IDX   stream numbers passed with the messages (default 0:0)
  --wait SEC        how long each message may take (default 1)
  --verbose         echo each message to stderr, pass the library's
                    console output to stderr
  --help            this text

example:
  uvc-host control '{"msg_type":"uvc_report","content":{"brightness":"get"}}'
)";

const char kFrames[] =
    R"(usage: uvc-host frames make --format F --size WxH --count N --dir DIR

Writes N numbered frames, each a test image showing its number, in the
layout the library reads from its frame root DIR:
  MJPG        DIR/mjpeg/W_H/frame0.jpg .. frame<N-1>.jpg (TurboJPEG)
  H264, S264  DIR/W_H/frame0 .. frame<N-1>, one access unit each (needs
              ffmpeg with libx264; fails with one line when there is none)
Files numbered N and above from an earlier, longer set are removed.

options:
  --format F      MJPG, H264 or S264
  --size WxH      frame size
  --count N       number of frames, 1..100000
  --dir DIR       frame root (created when missing)
  --fps N         H.264: frame rate and key-frame interval (default 30)
  --encoder PATH  H.264: the ffmpeg to use (default: ffmpeg on PATH)
  --help          this text
)";

const char kScenario[] =
    R"(usage: uvc-host scenario [OPTIONS] FILE

Plays FILE, one JSON object per line (blank lines and # comments skipped).
Each line holds one action and may hold "at_ms": run at that time after the
start (otherwise right after the previous line).

  {"at_ms":0,"configure":{"stream":"0:0","size":"640x480","fps":30,"format":"YUYV","streaming":true}}
  {"hotplug":{"status":4,"stream":"0:0"}}      "stream":"all" sends id 255
  {"control":"{\"msg_type\":\"uvc_report\",\"content\":{\"brightness\":\"get\"}}"}
  {"control":{"msg_type":"uvc_report","content":{"hue":"get"}},"stream":"0:0"}
  {"wait_ms":500}
  {"fail_sends":2}                             next 2 frame hand-overs fail
  {"expect":{"frames":{"stream":"0:0","min":10,"max":1000}}}
  {"expect":{"reply_contains":"brightness","within_ms":1000}}
  {"expect":{"replies":{"min":1,"max":1}}}
  {"expect":{"recoveries":{"min":1}}}

configure sets what the host reports; the library learns of it with the
hot-plug event (status 4). Frames count from the start, per stream; replies
count from the last control or hot-plug event (the library answers a stream
change with a message of its own). An expectation waits up to "within_ms"
(default 2000) for its minimum, then checks minimum and maximum. Every
expectation prints a line; a failed one also names FILE:LINE on stderr.

options:
  --frames-dir DIR  root of the recorded frame files
  --jpeg            MJPG from the test pattern instead of files
  --verbose         pass the library's console output to stderr
  --help            this text

exit status: 0 all expectations held, 1 one failed or an event was not
handled, 2 the file does not parse (nothing is run).
)";

}  // namespace

std::string helpText(const std::string& command) {
    if (command == "stream") {
        return kStream;
    }
    if (command == "control") {
        return kControl;
    }
    if (command == "frames") {
        return kFrames;
    }
    if (command == "scenario") {
        return kScenario;
    }
    return kMain;
}

}  // namespace uvc_host
