#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>

#include "cli/HelpFormatter.h"

#ifndef UVC_HOST_VERSION
#define UVC_HOST_VERSION "unknown"
#endif

namespace uvc_host {

namespace {

// A single-valued option kept as text; the last one given counts.
CLI::Option* textOption(CLI::App* app, const std::string& name, OptionText* text,
                        const std::string& valueName, const std::string& description) {
    return app->add_option(name, text->value, description)
        ->type_name(valueName)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->each([text](const std::string&) { text->given = true; });
}

CLI::Option* flag(CLI::App* app, const std::string& name, bool* value,
                  const std::string& description) {
    return app->add_flag(name, *value, description)->disable_flag_override();
}

const char kMainIntro[] =
    R"(Runs the stream client library in this process, plays the USB host in front
of it (through the compositor-bridge stand-in) and reports what arrives.
)";

const char kMainFooter[] =
    R"("uvc-host COMMAND --help" describes each command.
exit status: 0 success, 1 failure (run or expectation), 2 usage error,
130 ended by SIGINT (Ctrl-C), 143 ended by SIGTERM, 141 a stream run ended
because the reader of its output closed it (all three after the summary).
A file argument of "-" is standard input or output.
)";

const char kStreamIntro[] =
    R"(Configures one or more streams (streaming on), sends the stream-changed
hot-plug event, shows progress and ends with a summary per stream: frames,
empty frames, achieved fps, frame interval median / p99 / max, bytes and
connection recoveries.
)";

const char kStreamFooter[] =
    R"(Ctrl-C (SIGINT) or SIGTERM ends the run early and still prints the summary;
the exit status is then 130 or 143. A reader that closes an output (a pipe
such as --output - | player) ends the run too, after the summary (on stderr
when the output was stdout); the exit status is then 141.
The run passes (exit 0) when every stream received frames (with --frames:
at least N in time; otherwise as many as --fps gives from its first frame to
the end, less the tolerance), none of them empty, at an achieved rate within
the tolerance of --fps, and every output could be written.
Frames are written on a thread of their own: an output that cannot keep up
loses frames (counted as "not written"), not the stream its pace, and does
not fail the run. The summary counts dropped frames by cause: host busy (the
library's own warnings), not written, and library (missing between the
first and the last frame for other reasons; unknown when host-busy drops
were reported, since the library reports those at most once a second).
)";

const char kControlIntro[] =
    R"(Sends camera-control messages to the library, one after the other, and
prints every reply it sends back, one JSON text per line on stdout. get, set
and list do the same by setting name: names are checked against the
library's table first (an unknown name fails with exit status 1 and the
names close to it), values are whole numbers, printed as "NAME: VALUE".
)";

const char kControlFooter[] =
    R"(examples:
  uvc-host control '{"msg_type":"uvc_report","content":{"brightness":"get"}}'
  uvc-host control set brightness=40 hue=100
  uvc-host control get brightness --json
  uvc-host control list
)";

const char kFramesIntro[] =
    R"(Writes N numbered frames, each a test image showing its number, in the
layout the library reads from its frame root DIR:
  MJPG        DIR/mjpeg/W_H/frame0.jpg .. frame<N-1>.jpg (TurboJPEG)
  H264, S264  DIR/W_H/frame0 .. frame<N-1>, one access unit each (needs
              ffmpeg with libx264; fails with one line when there is none)
Files numbered N and above from an earlier, longer set are removed.
)";

const char kFormatsIntro[] =
    R"(Lists the frame formats the library's frame source makes, the sizes and
rates it takes and where the frames of each format come from, from the
library's own limits.
)";

const char kScenarioIntro[] =
    R"(Plays FILE ("-": standard input), one JSON object per line (blank lines and
# comments skipped).
Each line holds one action and may hold "at_ms": run at that time after the
start (otherwise right after the previous line).

  {"at_ms":0,"configure":{"stream":"0:0","size":"640x480","fps":30,"format":"YUYV","streaming":true}}
  {"hotplug":{"status":4,"stream":"0:0"}}      "stream":"all" sends id 255
  {"control":"{\"msg_type\":\"uvc_report\",\"content\":{\"brightness\":\"get\"}}"}
  {"control":{"msg_type":"uvc_report","content":{"hue":"get"}},"stream":"0:0"}
  {"wait_ms":500}
  {"fail_sends":2}                             next 2 frame hand-overs fail
  {"host_delay":{"stream":"0:0","ms":40}}      0:0's host takes 40 ms per frame (0: none)
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
)";

const char kScenarioFooter[] =
    R"(exit status: 0 all expectations held, 1 one failed or an event was not
handled, 2 the file does not parse (nothing is run).
)";

// One line for a parse error of CLI11, in the words of the tool's own checks.
std::string usageError(const CLI::ParseError& e) {
    std::string text = e.what();
    size_t colon = text.find(':');
    std::string head = text.substr(0, colon);
    if (text.find("disallowed flag override") != std::string::npos) {
        return "option --" + text.substr(0, text.find(' ')) + " takes no value";
    }
    if (colon != std::string::npos && text.find("missing", colon) != std::string::npos &&
        head.rfind("--", 0) == 0) {
        return "option " + head +
               (head == "--save-frame" ? " needs a frame number and a path" : " needs a value");
    }
    return text;
}

std::string checkScenario(const std::vector<std::string>& files, const OptionText& framesDir,
                          ScenarioOptions* out) {
    if (framesDir.given && framesDir.value.empty()) {
        return "empty --frames-dir";
    }
    if (files.size() > 1) {
        return "more than one scenario file given";
    }
    if (files.empty()) {
        return "no scenario file given";
    }
    out->framesDir = framesDir.value;
    out->file = files[0];
    return "";
}

CommandLine usage(const std::string& command, const std::string& error) {
    CommandLine line;
    std::string prefix = command.empty() ? "uvc-host" : "uvc-host " + command;
    line.text = prefix + ": " + error + " (see " + prefix + " --help)";
    return line;
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& args) {
    auto formatter = std::make_shared<HelpFormatter>();
    CLI::App app("", "uvc-host");
    app.formatter(formatter);
    app.allow_extras();
    bool version = false;
    flag(&app, "--version", &version, "the tool's version");
    formatter->add(&app, {"usage: uvc-host COMMAND [OPTIONS]", kMainIntro, kMainFooter});

    CommandLine result;
    StreamOptions& so = result.stream;
    StreamTexts st;
    bool noProgress = false;
    CLI::App* stream =
        app.add_subcommand("stream", "configure streams, receive frames, write them, summarise");
    stream->allow_extras();
    formatter->add(stream, {"usage: uvc-host stream [OPTIONS]", kStreamIntro, kStreamFooter});
    stream
        ->add_option("--stream", st.streams,
                     "stream to run: 0:0..0:3 or 1:0..1:3, repeatable\n"
                     "(default 0:0); \"all\" runs the eight with one\n"
                     "hot-plug event for stream id 255")
        ->type_name("ID:IDX");
    textOption(stream, "--size", &st.size, "WxH",
               "frame size (default 640x480; each side 1..8192)");
    textOption(stream, "--fps", &st.fps, "N", "frame rate, 1..240 (default 30)");
    textOption(stream, "--format", &st.format, "F",
               "YUYV, YU12, NV12, MJPG, H264 or S264 (default YUYV)");
    textOption(stream, "--duration", &st.duration, "SEC",
               "run this long (default 5 s when --frames is not given)");
    textOption(stream, "--frames", &st.frames, "N", "run until every stream received N frames");
    textOption(stream, "--timeout", &st.timeout, "SEC",
               "with --frames: give up after SEC (default N / fps + 5)");
    textOption(stream, "--frames-dir", &st.framesDir, "DIR",
               "root of the recorded frame files (MJPG without --jpeg,\n"
               "H264, S264): DIR/mjpeg/W_H/frameN.jpg, DIR/W_H/frameN");
    flag(stream, "--jpeg", &so.jpeg, "MJPG: compress the test pattern instead of reading files");
    textOption(stream, "--camera", &st.camera, "DEVICE",
               "frames from this V4L2 camera (e.g. /dev/video0), converted\n"
               "to --format and --size (YUYV, YU12, NV12, MJPG)");
    textOption(stream, "--output", &st.output, "PATH",
               "write the frames: raw video (YUYV, YU12, NV12),\n"
               "concatenated JPEG (MJPG) or Annex-B H.264; with several\n"
               "streams the key goes into the name (out-0_1.yuv);\n"
               "\"-\" writes to stdout (one stream; the summary then\n"
               "goes to stderr, like the progress); frames the output\n"
               "cannot keep up with are dropped and counted");
    stream
        ->add_option("--save-frame", st.saveFrames,
                     "save frame N (counted from 0) as a JPEG image (\"-\":\n"
                     "stdout); repeatable; not for H.264")
        ->type_name("N PATH");
    textOption(stream, "--timing", &st.timing, "FILE",
               "write one record per received frame: stream, index,\n"
               "arrival and interval in ms, bytes; CSV, or JSON lines\n"
               "when FILE ends in .jsonl or .json; \"-\": CSV on stdout");
    textOption(stream, "--report", &st.report, "DIR",
               "write DIR/index.html: per stream the frame intervals\n"
               "over time and as a histogram, the summary and pictures\n"
               "of the frames (H.264 through ffmpeg); opens without a\n"
               "server");
    stream
        ->add_option("--host-delay", st.hostDelays,
                     "make that stream's host take MS milliseconds per\n"
                     "received frame (0..60000), as a slow host would;\n"
                     "repeatable")
        ->type_name("ID:IDX=MS");
    textOption(stream, "--fps-tolerance", &st.tolerance, "PCT",
               "allowed deviation of the achieved rate (default 10)");
    flag(stream, "--json", &so.json, "print the summary as one JSON object, no progress");
    flag(stream, "--no-progress", &noProgress, "no progress lines (they go to stderr)");
    flag(stream, "--verbose", &so.verbose, "pass the library's console output to stderr");

    ControlOptions& co = result.control;
    ControlTexts ct;
    CLI::App* control =
        app.add_subcommand("control", "send camera-control messages and print the replies");
    control->allow_extras();
    formatter->add(control, {"usage: uvc-host control [OPTIONS] 'JSON' ...\n"
                             "       uvc-host control get NAME ... [OPTIONS]\n"
                             "       uvc-host control set NAME=VALUE ... [OPTIONS]\n"
                             "       uvc-host control list [OPTIONS]",
                             kControlIntro, kControlFooter});
    control->add_option("messages", co.messages);
    CLI::App* get = control->add_subcommand("get", "print the current value of each NAME");
    get->add_option("names", co.names);
    CLI::App* set =
        control->add_subcommand("set", "write each NAME=VALUE, then print what reads back");
    set->add_option("names", co.names);
    CLI::App* list = control->add_subcommand(
        "list", "every setting of the library's table: range, step, default, current value");
    for (CLI::App* sub : {get, set, list}) {
        // Options of control may follow the setting names.
        sub->fallthrough();
        sub->allow_extras();
    }
    textOption(control, "--file", &ct.file, "FILE",
               "also send the messages of FILE, one JSON object per\n"
               "line (blank lines and lines starting with # skipped);\n"
               "\"-\" reads standard input");
    textOption(control, "--stream", &ct.stream, "ID:IDX",
               "stream numbers passed with the messages (default 0:0)");
    textOption(control, "--wait", &ct.wait, "SEC", "how long each message may take (default 1)");
    flag(control, "--json", &co.json,
         "print one JSON object: {\"replies\":[...]} for messages,\n"
         "{\"NAME\":VALUE,...} for get and set, {\"settings\":[...]}\n"
         "for list");
    flag(control, "--verbose", &co.verbose,
         "echo each message to stderr, pass the library's\nconsole output to stderr");

    FramesOptions& fo = result.frames;
    FramesTexts ft;
    CLI::App* frames =
        app.add_subcommand("frames", "make a set of recorded frame files (frames make ...)");
    frames->allow_extras();
    CLI::App* make = frames->add_subcommand("make");
    make->allow_extras();
    HelpPage framesPage{"usage: uvc-host frames make --format F --size WxH --count N --dir DIR",
                        kFramesIntro, ""};
    formatter->add(frames, framesPage);
    formatter->add(make, framesPage);
    textOption(make, "--format", &ft.format, "F", "MJPG, H264 or S264");
    textOption(make, "--size", &ft.size, "WxH", "frame size");
    textOption(make, "--count", &ft.count, "N", "number of frames, 1..100000");
    textOption(make, "--dir", &ft.dir, "DIR", "frame root (created when missing)");
    textOption(make, "--fps", &ft.fps, "N",
               "H.264: frame rate and key-frame interval (default 30)");
    textOption(make, "--encoder", &ft.encoder, "PATH",
               "H.264: the ffmpeg to use (default: ffmpeg on PATH)");

    CLI::App* formats = app.add_subcommand(
        "formats", "list the frame formats, sizes and rates the library can produce");
    formats->allow_extras();
    formatter->add(formats, {"usage: uvc-host formats", kFormatsIntro, ""});

    ScenarioOptions& sc = result.scenario;
    std::vector<std::string> scenarioFiles;
    OptionText scenarioFramesDir;
    CLI::App* scenario =
        app.add_subcommand("scenario", "play a timed script of host events with expectations");
    scenario->allow_extras();
    formatter->add(scenario,
                   {"usage: uvc-host scenario [OPTIONS] FILE", kScenarioIntro, kScenarioFooter});
    scenario->add_option("file", scenarioFiles);
    textOption(scenario, "--frames-dir", &scenarioFramesDir, "DIR",
               "root of the recorded frame files");
    flag(scenario, "--jpeg", &sc.jpeg, "MJPG from the test pattern instead of files");
    flag(scenario, "--json", &sc.json,
         "print one JSON object at the end (expectations and\n"
         "their results) instead of a line for each");
    flag(scenario, "--verbose", &sc.verbose, "pass the library's console output to stderr");

    if (!args.empty() && args[0] == "help") {
        result.command = CommandLine::Command::Help;
        result.text = app.help();
        return result;
    }
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    std::string command;
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        result.command = CommandLine::Command::Help;
        result.text = app.help();
        return result;
    } catch (const CLI::ParseError& e) {
        command = app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name();
        return usage(command, usageError(e));
    }
    if (version) {
        result.command = CommandLine::Command::Version;
        result.text = std::string("uvc-host ") + UVC_HOST_VERSION + "\n";
        return result;
    }
    std::vector<std::string> extra = app.remaining(true);
    std::string error;
    // Unknown words come first: they often explain the errors that follow.
    if (!extra.empty() && !(frames->parsed() && !make->parsed())) {
        error = extra[0].rfind("-", 0) == 0 ? "unknown option " + extra[0]
                                            : "unexpected argument '" + extra[0] + "'";
    }
    if (stream->parsed()) {
        command = "stream";
        so.progress = !noProgress;
        error = error.empty() ? checkStreamOptions(st, &so) : error;
        result.command = CommandLine::Command::Stream;
    } else if (control->parsed()) {
        command = "control";
        co.action = get->parsed()    ? ControlOptions::Action::Get
                    : set->parsed()  ? ControlOptions::Action::Set
                    : list->parsed() ? ControlOptions::Action::List
                                     : ControlOptions::Action::Messages;
        error = error.empty() ? checkControlOptions(ct, &co) : error;
        result.command = CommandLine::Command::Control;
    } else if (frames->parsed()) {
        command = "frames";
        if (!make->parsed()) {
            error = extra.empty()
                        ? "missing action (use: frames make ...)"
                        : "unknown frames action '" + extra[0] + "' (use: frames make ...)";
        } else {
            error = error.empty() ? checkFramesOptions(ft, &fo) : error;
        }
        result.command = CommandLine::Command::Frames;
    } else if (formats->parsed()) {
        command = "formats";
        result.command = CommandLine::Command::Formats;
    } else if (scenario->parsed()) {
        command = "scenario";
        sc.framesDir = scenarioFramesDir.value;
        error = error.empty() ? checkScenario(scenarioFiles, scenarioFramesDir, &sc) : error;
        result.command = CommandLine::Command::Scenario;
    } else {
        if (extra.empty()) {
            return usage("", "missing command");
        }
        return usage("", extra[0].rfind("-", 0) == 0 ? "unknown option " + extra[0]
                                                     : "unknown command '" + extra[0] + "'");
    }
    if (!error.empty()) {
        return usage(command, error);
    }
    return result;
}

}  // namespace uvc_host
