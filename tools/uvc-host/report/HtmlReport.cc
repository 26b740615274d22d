#include "report/HtmlReport.h"

#include <algorithm>
#include <cstdio>

#include "media/FileUtil.h"
#include "report/RunTimeline.h"

namespace uvc_host {

namespace {

// Room around a plot's area for tick labels and axis titles; above it the
// values of the intervals clipped at its top edge.
constexpr double kLeft = 64;
constexpr double kRight = 24;
constexpr double kTop = 26;
constexpr double kBottom = 44;
constexpr double kTimeWidth = 680;
constexpr double kTimeHeight = 200;
constexpr double kOverviewHeight = 260;
constexpr double kHistogramWidth = 300;
constexpr size_t kMaxPlotPoints = 2000;  // per stream and plot
constexpr int kHistogramCountSteps = 5;
constexpr double kCharWidth = 6.2;  // of an 11-pixel label, for keeping labels apart

// One colour per stream, told apart also by most colour-blind readers; red
// is kept for drops.
const char* const kStreamColours[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#9467bd",
                                      "#8c564b", "#e377c2", "#17becf", "#9a9a16"};
const char kDropFill[] = "#f6c1bc";
const char kReferenceColour[] = "#333";
const char kTargetDash[] = "7 4";
const char kP99Dash[] = "2 3";

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string fixed(double v, int decimals = 2) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, v);
    return text;
}

// An interval as a label: whole milliseconds are enough once it is long.
std::string msText(double ms) {
    return fixed(ms, ms >= 100 ? 0 : 1) + " ms";
}

const char* colourOf(size_t stream) {
    return kStreamColours[stream % (sizeof kStreamColours / sizeof kStreamColours[0])];
}

std::string anchorOf(StreamKey key) {
    return "stream-" + std::to_string(key.id) + "-" + std::to_string(key.idx);
}

// A label with a white halo, readable over lines and bars.
std::string label(double x, double y, const std::string& text, const char* anchor = "middle",
                  const std::string& extra = "") {
    return "<text x=\"" + fixed(x, 1) + "\" y=\"" + fixed(y, 1) + "\" text-anchor=\"" + anchor +
           "\" class=\"halo\"" + extra + ">" + escaped(text) + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const std::string& style) {
    return "<line x1=\"" + fixed(x1, 1) + "\" y1=\"" + fixed(y1, 1) + "\" x2=\"" + fixed(x2, 1) +
           "\" y2=\"" + fixed(y2, 1) + "\" " + style + "/>\n";
}

std::string referenceStyle(const char* dash) {
    return std::string("stroke=\"") + kReferenceColour + "\" stroke-dasharray=\"" + dash + "\"";
}

// A plot area with round ticks, gridlines at each and titled axes; data is
// added in plot units through x() and y(), and values above the y axis sit
// on its top edge.
class Plot {
public:
    Plot(double width, double height, const RoundAxis& xAxis, const RoundAxis& yAxis,
         const std::string& xTitle, const std::string& yTitle)
        : width_(width), height_(height), xAxis_(xAxis), yAxis_(yAxis) {
        svg_ = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
               fixed(width + kLeft + kRight, 0) + "\" height=\"" +
               fixed(height + kTop + kBottom, 0) + "\">\n";
        for (double t : xAxis.ticks) {
            svg_ += line(x(t), top(), x(t), bottom(), "class=\"grid\"");
            svg_ += label(x(t), bottom() + 14, fixed(t, xAxis.decimals));
        }
        for (double t : yAxis.ticks) {
            svg_ += line(left(), y(t), right(), y(t), "class=\"grid\"");
            svg_ += label(left() - 5, y(t) + 4, fixed(t, yAxis.decimals), "end");
        }
        svg_ += label(left() + width / 2, bottom() + 34, xTitle);
        double middle = top() + height / 2;
        svg_ += label(16, middle, yTitle, "middle",
                      " transform=\"rotate(-90 16 " + fixed(middle, 1) + ")\"");
    }

    double left() const { return kLeft; }
    double right() const { return kLeft + width_; }
    double top() const { return kTop; }
    double bottom() const { return kTop + height_; }
    double x(double v) const { return left() + v / xAxis_.top * width_; }
    double y(double v) const { return bottom() - std::min(v, yAxis_.top) / yAxis_.top * height_; }
    bool above(double v) const { return v > yAxis_.top; }

    void add(const std::string& svg) { svg_ += svg; }
    std::string finish() const {
        return svg_ + "<rect x=\"" + fixed(left(), 0) + "\" y=\"" + fixed(top(), 0) +
               "\" width=\"" + fixed(width_, 0) + "\" height=\"" + fixed(height_, 0) +
               "\" fill=\"none\" stroke=\"#888\"/>\n</svg>\n";
    }

private:
    double width_;
    double height_;
    RoundAxis xAxis_;
    RoundAxis yAxis_;
    std::string svg_;
};

// The target period and the p99 as horizontal lines, labelled at the right
// end: the upper label above its line, the lower one below, so that close
// lines keep readable labels. A p99 above the scale is named on the top
// edge.
std::string referenceLines(const Plot& plot, double periodMs, double p99Ms,
                           const std::string& p99Name) {
    std::string svg;
    bool p99Higher = p99Ms >= periodMs;
    svg += line(plot.left(), plot.y(periodMs), plot.right(), plot.y(periodMs),
                referenceStyle(kTargetDash));
    svg += label(plot.right() - 4, plot.y(periodMs) + (p99Higher ? 13 : -4),
                 "target " + fixed(periodMs) + " ms", "end");
    if (plot.above(p99Ms)) {
        return svg + label(plot.right() - 4, plot.top() + 13,
                           p99Name + " " + msText(p99Ms) + ", above the scale", "end");
    }
    svg += line(plot.left(), plot.y(p99Ms), plot.right(), plot.y(p99Ms), referenceStyle(kP99Dash));
    return svg + label(plot.right() - 4, plot.y(p99Ms) + (p99Higher ? -4 : 13),
                       p99Name + " " + fixed(p99Ms) + " ms", "end");
}

// One stream's intervals as steps: each a level line over the time it
// lasted, so that a long one reads as the stall it was. For long runs a
// step spans a slice of intervals at the largest of them, so that no spike
// is lost. Its first frame is a dot on the time axis; each clipped interval
// a triangle on the top edge with its value above where there is room
// (`labelEnd`: where the last label ended, shared by the streams of a plot).
std::string series(const Plot& plot, const StreamTimeline& s, const char* colour,
                   double* labelEnd) {
    std::string points;
    std::string marks;
    size_t slice = std::max<size_t>(1, (s.ms.size() + kMaxPlotPoints - 1) / kMaxPlotPoints);
    for (size_t first = 0; first < s.ms.size(); first += slice) {
        size_t end = std::min(s.ms.size(), first + slice);
        auto i = size_t(std::max_element(s.ms.begin() + long(first), s.ms.begin() + long(end)) -
                        s.ms.begin());
        double from = plot.x(s.atSec[first] - s.ms[first] / 1000);
        double to = plot.x(s.atSec[end - 1]);
        std::string y = fixed(plot.y(s.ms[i]), 1);
        points += fixed(from, 1) + "," + y + " " + fixed(to, 1) + "," + y + " ";
        if (!plot.above(s.ms[i])) {
            continue;
        }
        double x = (from + to) / 2;
        std::string text = (i == 0 ? "start-up " : "") + msText(s.ms[i]);
        marks += "<path d=\"M" + fixed(x - 4, 1) + "," + fixed(plot.top() + 7, 1) + "h8l-4,-7z\" " +
                 "fill=\"" + colour + "\"><title>stream " + s.key.text() + ": " + text +
                 ", ended at " + fixed(s.atSec[i], 3) + " s</title></path>\n";
        double half = double(text.size()) * kCharWidth / 2;
        if (x - half > *labelEnd) {
            marks += label(x, plot.top() - 5, text);
            *labelEnd = x + half + 4;
        }
    }
    std::string svg = "<polyline fill=\"none\" stroke=\"" + std::string(colour) +
                      "\" stroke-width=\"1.3\" stroke-linejoin=\"round\" points=\"" + points +
                      "\"/>\n";
    if (s.firstSec >= 0) {
        svg += "<circle cx=\"" + fixed(plot.x(s.firstSec), 1) + "\" cy=\"" +
               fixed(plot.bottom(), 1) + "\" r=\"3.5\" fill=\"" + colour + "\"><title>stream " +
               s.key.text() + ": first frame at " + fixed(s.firstSec * 1000, 1) +
               " ms</title></circle>\n";
    }
    return svg + marks;
}

// Each drop as a red band over the time it took; bands closer than a pixel
// are merged, so that a long run stays a small page.
std::string dropBands(const Plot& plot, const StreamTimeline& s, double periodMs) {
    struct Band {
        double from, to;
        size_t drops;
        uint64_t frames;
        double atSec;
    };
    std::vector<Band> bands;
    for (size_t i : s.drops) {
        double from = plot.x(s.atSec[i] - s.ms[i] / 1000);
        double to = std::max(plot.x(s.atSec[i]), from + 2);
        uint64_t frames = framesLost(s.ms[i], periodMs);
        if (!bands.empty() && from <= bands.back().to + 1) {
            bands.back().to = to;
            bands.back().drops++;
            bands.back().frames += frames;
        } else {
            bands.push_back({from, to, 1, frames, s.atSec[i]});
        }
    }
    std::string svg;
    for (const Band& b : bands) {
        std::string what = b.drops == 1 ? "a drop of " + std::to_string(b.frames) + " frame(s)"
                                        : std::to_string(b.drops) + " drops, " +
                                              std::to_string(b.frames) + " frames";
        svg += "<rect x=\"" + fixed(b.from, 1) + "\" y=\"" + fixed(plot.top(), 1) + "\" width=\"" +
               fixed(b.to - b.from, 1) + "\" height=\"" + fixed(plot.bottom() - plot.top(), 1) +
               "\" fill=\"" + kDropFill + "\"><title>" + what + " at " + fixed(b.atSec, 3) +
               " s</title></rect>\n";
    }
    return svg;
}

std::string timeTitle() {
    return "time from the run's first frame (s)";
}

std::string overviewPlot(const RunTimeline& run) {
    Plot plot(kTimeWidth, kOverviewHeight, run.timeAxis, run.intervalAxis, timeTitle(),
              "frame interval (ms)");
    plot.add(referenceLines(plot, run.periodMs, run.p99Ms, "p99 (all streams)"));
    double labelEnd = 0;
    for (size_t i = 0; i < run.streams.size(); ++i) {
        plot.add(series(plot, run.streams[i], colourOf(i), &labelEnd));
    }
    return plot.finish();
}

std::string intervalPlot(const RunTimeline& run, size_t stream, double p99Ms) {
    const StreamTimeline& s = run.streams[stream];
    Plot plot(kTimeWidth, kTimeHeight, run.timeAxis, run.intervalAxis, timeTitle(),
              "frame interval (ms)");
    plot.add(dropBands(plot, s, run.periodMs));
    plot.add(referenceLines(plot, run.periodMs, p99Ms, "p99"));
    double labelEnd = 0;
    plot.add(series(plot, s, colourOf(stream), &labelEnd));
    return plot.finish();
}

// Counts of intervals in bins a tenth or a fifth of a tick wide, over the
// interval scale; those above it are counted in a note.
std::string histogram(const RunTimeline& run, size_t stream, double p99Ms) {
    const StreamTimeline& s = run.streams[stream];
    const RoundAxis& msAxis = run.intervalAxis;
    double width = msAxis.step / (msAxis.ticks.size() <= 6 ? 10 : 5);
    auto binCount = size_t(msAxis.top / width + 0.5);
    std::vector<size_t> bins(binCount, 0);
    size_t above = 0;
    for (double v : s.ms) {
        if (v > msAxis.top) {
            ++above;
        } else {
            bins[std::min(binCount - 1, size_t(v / width))]++;
        }
    }
    size_t most = *std::max_element(bins.begin(), bins.end());
    RoundAxis counts = roundAxis(
        double(most), int(std::min<size_t>(kHistogramCountSteps, std::max<size_t>(most, 1))));
    Plot plot(kHistogramWidth, kTimeHeight, msAxis, counts, "frame interval (ms)", "intervals");
    for (size_t b = 0; b < binCount; ++b) {
        if (bins[b] == 0) {
            continue;
        }
        double x0 = plot.x(double(b) * width);
        double x1 = plot.x(double(b + 1) * width);
        plot.add("<rect x=\"" + fixed(x0 + 0.5, 1) + "\" y=\"" + fixed(plot.y(double(bins[b])), 1) +
                 "\" width=\"" + fixed(std::max(x1 - x0 - 1, 1.0), 1) + "\" height=\"" +
                 fixed(plot.bottom() - plot.y(double(bins[b])), 1) + "\" fill=\"" +
                 colourOf(stream) + "\"><title>" + fixed(double(b) * width) + "-" +
                 fixed(double(b + 1) * width) + " ms: " + std::to_string(bins[b]) +
                 "</title></rect>\n");
    }
    // Vertical reference lines, labelled on either side so that close ones
    // stay apart.
    bool p99Right = p99Ms >= run.periodMs;
    double target = plot.x(run.periodMs);
    plot.add(line(target, plot.top(), target, plot.bottom(), referenceStyle(kTargetDash)));
    plot.add(
        label(target + (p99Right ? -3 : 3), plot.top() + 12, "target", p99Right ? "end" : "start"));
    if (p99Ms <= msAxis.top) {
        double p99 = plot.x(p99Ms);
        plot.add(line(p99, plot.top(), p99, plot.bottom(), referenceStyle(kP99Dash)));
        plot.add(
            label(p99 + (p99Right ? 3 : -3), plot.top() + 12, "p99", p99Right ? "start" : "end"));
    }
    if (above > 0) {
        plot.add(label(
            plot.right() - 4, plot.top() + 28,
            std::to_string(above) + " above " + fixed(msAxis.top, msAxis.decimals) + " ms", "end"));
    }
    return plot.finish();
}

std::string legend(const RunTimeline& run) {
    std::string html = "<p class=\"legend\">";
    for (size_t i = 0; i < run.streams.size(); ++i) {
        html += "<a href=\"#" + anchorOf(run.streams[i].key) +
                "\"><span class=\"swatch\" style=\"background:" + colourOf(i) + "\"></span>" +
                run.streams[i].key.text() + "</a> ";
    }
    return html +
           "<br><span class=\"key\">dashed: target period; dotted: p99; dot on the time "
           "axis: a stream's first frame; triangle on the top edge: an interval above the "
           "scale, its value over it; red band (stream plots): a drop, an interval over 1.5 "
           "periods</span></p>\n";
}

const StreamResult* resultOf(const RunReport& report, StreamKey key) {
    for (const StreamResult& s : report.streams) {
        if (s.key == key) {
            return &s;
        }
    }
    return nullptr;
}

std::string summaryTable(const RunReport& report, const RunTimeline& run) {
    std::string html =
        "<table>\n<tr><th>stream</th><th>result</th><th>frames</th><th>empty</th>"
        "<th>first frame (ms)</th><th>dropped frames<br><small>in gaps over 1.5 periods</small>"
        "</th><th>achieved fps</th><th>interval median / p99 / max (ms)</th>"
        "<th>bytes</th><th>problems</th></tr>\n";
    for (const StreamResult& s : report.streams) {
        const StatsSummary& st = s.stats;
        std::string problems;
        for (const std::string& p : s.problems) {
            problems += escaped(p) + "<br>";
        }
        std::string first = "-";
        std::string dropped = "-";
        std::string name = s.key.text();
        for (size_t i = 0; i < run.streams.size(); ++i) {
            const StreamTimeline& t = run.streams[i];
            if (!(t.key == s.key)) {
                continue;
            }
            name = "<a href=\"#" + anchorOf(s.key) +
                   "\"><span class=\"swatch\" style=\"background:" + colourOf(i) + "\"></span>" +
                   s.key.text() + "</a>";
            if (t.firstSec >= 0) {
                first = fixed(t.firstSec * 1000, 1);
            }
            dropped = "<span class=\"" + std::string(t.framesDropped ? "drop" : "") +
                      "\" title=\"in " + std::to_string(t.drops.size()) + " intervals\">" +
                      std::to_string(t.framesDropped) + "</span>";
        }
        html += "<tr><td>" + name + "</td><td class=\"" +
                (s.problems.empty() ? "ok\">ok" : "failed\">FAILED") + "</td><td>" +
                std::to_string(st.frames) + "</td><td>" + std::to_string(st.emptyFrames) +
                "</td><td>" + first + "</td><td>" + dropped + "</td><td>" + fixed(st.achievedFps) +
                "</td><td>" + fixed(st.intervalMedianMs) + " / " + fixed(st.intervalP99Ms) + " / " +
                fixed(st.intervalMaxMs) + "</td><td>" + std::to_string(st.bytes) +
                "</td><td class=\"problems\">" + problems + "</td></tr>\n";
    }
    return html + "</table>\n";
}

std::string pictures(const StreamTrace& t, const std::vector<Thumbnail>& thumbnails,
                     const StreamOptions& o) {
    std::string sheet;
    for (const Thumbnail& th : thumbnails) {
        if (th.key == t.key) {
            sheet += "<figure><img src=\"" + escaped(th.file) + "\" alt=\"frame " +
                     std::to_string(th.index) + "\"><figcaption>frame " + std::to_string(th.index) +
                     "</figcaption></figure>\n";
        }
    }
    if (!sheet.empty()) {
        return "<div class=\"sheet\">\n" + sheet + "</div>\n";
    }
    return "<p>no pictures of this stream" +
           std::string(o.format->kind == FormatKind::H264
                           ? " (H.264 pictures are decoded with ffmpeg, which is not on PATH)"
                           : "") +
           "</p>\n";
}

const char kStyle[] =
    "body{font-family:sans-serif;margin:1.5em 2em;color:#222}"
    "h1{font-size:1.5em;margin-bottom:.2em}h2{font-size:1.2em;margin:1.6em 0 .2em}"
    ".meta{color:#555;margin:.2em 0}"
    "pre.cmd{background:#f4f4f4;padding:6px 10px;white-space:pre-wrap;word-break:break-all}"
    "table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:3px 8px;"
    "text-align:right}td:first-child,td.problems,th:last-child{text-align:left}"
    ".ok{color:#2e7d32}.failed{color:#c62828;font-weight:bold}.drop{color:#c62828}"
    ".swatch{display:inline-block;width:.8em;height:.8em;margin-right:.35em;"
    "vertical-align:baseline}.legend a{margin-right:1em;text-decoration:none;color:#222}"
    ".key{font-size:12px;color:#555}.note{margin:.2em 0;color:#444}"
    "svg{font-family:sans-serif;font-size:11px;margin-right:12px}"
    "svg .grid{stroke:#e4e4e4}svg .halo{paint-order:stroke;stroke:#fff;stroke-width:3px;"
    "fill:#222}.plots{display:flex;flex-wrap:wrap;align-items:flex-start}"
    ".sheet img{width:160px;margin:4px;border:1px solid #ccc}"
    "figure{display:inline-block;margin:0}figcaption{font-size:11px}";

}  // namespace

bool writeHtmlReport(const std::string& dir, const RunReport& report, const RunHeader& header,
                     const std::vector<StreamTrace>& traces,
                     const std::vector<Thumbnail>& thumbnails, std::string* error) {
    const StreamOptions& o = *report.options;
    RunTimeline run = runTimeline(traces, 1000.0 / o.fps);
    std::string title = "uvc-host stream: " + o.size.text() + " " + o.format->name + " at " +
                        std::to_string(o.fps) + " fps";
    std::string html = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" +
                       escaped(title) + "</title>\n<style>" + kStyle +
                       "</style>\n</head><body id=\"top\">\n";
    html += "<h1>" + escaped(title) + "</h1>\n<p class=\"meta\">";
    if (!header.startedAt.empty()) {
        html += "started " + escaped(header.startedAt) + " &middot; ";
    }
    html += fixed(report.elapsedSec, 1) + " s" + (report.interrupted ? " (interrupted)" : "") +
            " &middot; " + std::to_string(report.streams.size()) + " stream(s) &middot; " +
            "recoveries " + std::to_string(report.recoveries) + " &middot; uvc-host " +
            escaped(header.version.empty() ? "(version unknown)" : header.version) +
            " &middot; result: <b class=\"" + (report.passed() ? "ok\">ok" : "failed\">FAILED") +
            "</b></p>\n";
    if (!header.commandLine.empty()) {
        html += "<pre class=\"cmd\">$ " + escaped(header.commandLine) + "</pre>\n";
    }
    html += "<h2>All streams</h2>\n" + overviewPlot(run) + legend(run);
    html += summaryTable(report, run);
    for (size_t i = 0; i < run.streams.size(); ++i) {
        const StreamTimeline& s = run.streams[i];
        const StreamResult* result = resultOf(report, s.key);
        double p99Ms = result ? result->stats.intervalP99Ms : run.p99Ms;
        html += "<h2 id=\"" + anchorOf(s.key) +
                "\"><span class=\"swatch\" style=\"background:" + colourOf(i) +
                "\"></span>stream " + s.key.text() +
                (result ? (result->problems.empty() ? " <span class=\"ok\">ok</span>"
                                                    : " <span class=\"failed\">FAILED</span>")
                        : "") +
                "</h2>\n<p class=\"note\">";
        if (s.firstSec >= 0) {
            html += "first frame at " + fixed(s.firstSec * 1000, 1) + " ms &middot; ";
        }
        html += s.drops.empty() ? std::string("no drops")
                                : std::to_string(s.framesDropped) + " frame(s) dropped in " +
                                      std::to_string(s.drops.size()) + " interval(s)";
        html += " &middot; <a href=\"#top\">top</a></p>\n<div class=\"plots\">" +
                intervalPlot(run, i, p99Ms) + histogram(run, i, p99Ms) + "</div>\n" +
                pictures(traces[i], thumbnails, o);
    }
    html += "</body></html>\n";
    std::string path = dir + "/index.html";
    return writeFile(path, reinterpret_cast<const uint8_t*>(html.data()), html.size(), error);
}

}  // namespace uvc_host
