#include "report/HtmlReport.h"

#include <algorithm>
#include <cstdio>

#include "media/FileUtil.h"

namespace uvc_host {

namespace {

constexpr double kPlotWidth = 760;
constexpr double kPlotHeight = 220;
constexpr double kMargin = 56;
constexpr int kHistogramBins = 40;
constexpr size_t kMaxPlotPoints = 2000;

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

// Intervals in ms with the time (s from the stream's first frame) of the
// frame that ended each.
void intervalsOf(const StreamTrace& t, std::vector<double>* atSec, std::vector<double>* ms) {
    for (size_t i = 1; i < t.arrivalsNs.size(); ++i) {
        if (t.arrivalsNs[i] < t.arrivalsNs[i - 1]) {
            continue;
        }
        atSec->push_back(double(t.arrivalsNs[i] - t.arrivalsNs[0]) / 1e9);
        ms->push_back(double(t.arrivalsNs[i] - t.arrivalsNs[i - 1]) / 1e6);
    }
}

std::string svgOpen() {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
           fixed(kPlotWidth + 2 * kMargin, 0) + "\" height=\"" +
           fixed(kPlotHeight + 2 * kMargin, 0) + "\">\n<rect x=\"" + fixed(kMargin, 0) + "\" y=\"" +
           fixed(kMargin, 0) + "\" width=\"" + fixed(kPlotWidth, 0) + "\" height=\"" +
           fixed(kPlotHeight, 0) + "\" fill=\"none\" stroke=\"#999\"/>\n";
}

std::string label(double x, double y, const std::string& text, const char* anchor = "middle") {
    return "<text x=\"" + fixed(x, 1) + "\" y=\"" + fixed(y, 1) +
           "\" font-size=\"11\" text-anchor=\"" + anchor + "\">" + escaped(text) + "</text>\n";
}

// Interval against time; the target period is a dashed line. Long runs keep
// the largest interval of each slice, so that no spike is lost.
std::string intervalPlot(const std::vector<double>& atSec, const std::vector<double>& ms,
                         double periodMs) {
    double tMax = atSec.empty() ? 1 : std::max(atSec.back(), 1e-3);
    double yMax = std::max(periodMs * 2, ms.empty() ? 0 : *std::max_element(ms.begin(), ms.end()));
    auto x = [&](double t) { return kMargin + t / tMax * kPlotWidth; };
    auto y = [&](double v) { return kMargin + kPlotHeight - v / yMax * kPlotHeight; };
    std::string svg = svgOpen();
    size_t step = (ms.size() + kMaxPlotPoints - 1) / kMaxPlotPoints;
    std::string points;
    for (size_t i = 0; i < ms.size(); i += std::max<size_t>(step, 1)) {
        size_t end = std::min(ms.size(), i + std::max<size_t>(step, 1));
        size_t top =
            size_t(std::max_element(ms.begin() + long(i), ms.begin() + long(end)) - ms.begin());
        points += fixed(x(atSec[top]), 1) + "," + fixed(y(ms[top]), 1) + " ";
    }
    svg += "<polyline fill=\"none\" stroke=\"#1565c0\" stroke-width=\"1\" points=\"" + points +
           "\"/>\n";
    svg += "<line x1=\"" + fixed(kMargin, 0) + "\" x2=\"" + fixed(kMargin + kPlotWidth, 0) +
           "\" y1=\"" + fixed(y(periodMs), 1) + "\" y2=\"" + fixed(y(periodMs), 1) +
           "\" stroke=\"#c62828\" stroke-dasharray=\"6 4\"/>\n";
    svg += label(kMargin + kPlotWidth, y(periodMs) - 4, "target " + fixed(periodMs) + " ms", "end");
    svg += label(kMargin - 4, kMargin + 4, fixed(yMax, 1) + " ms", "end");
    svg += label(kMargin - 4, kMargin + kPlotHeight, "0", "end");
    svg += label(kMargin, kMargin + kPlotHeight + 16, "0 s");
    svg += label(kMargin + kPlotWidth, kMargin + kPlotHeight + 16, fixed(tMax, 1) + " s");
    svg += label(kMargin + kPlotWidth / 2, kMargin + kPlotHeight + 32, "frame interval over time");
    return svg + "</svg>\n";
}

// Counts of intervals in equal bins from 0 to twice the period; longer ones
// fall in the last bin.
std::string histogram(const std::vector<double>& ms, double periodMs) {
    std::vector<size_t> bins(kHistogramBins, 0);
    double width = periodMs * 2 / kHistogramBins;
    for (double v : ms) {
        bins[std::min<size_t>(kHistogramBins - 1, size_t(v / width))]++;
    }
    size_t most = std::max<size_t>(1, *std::max_element(bins.begin(), bins.end()));
    std::string svg = svgOpen();
    double barWidth = kPlotWidth / kHistogramBins;
    for (int b = 0; b < kHistogramBins; ++b) {
        double h = double(bins[size_t(b)]) / double(most) * kPlotHeight;
        svg += "<rect x=\"" + fixed(kMargin + b * barWidth + 1, 1) + "\" y=\"" +
               fixed(kMargin + kPlotHeight - h, 1) + "\" width=\"" + fixed(barWidth - 2, 1) +
               "\" height=\"" + fixed(h, 1) + "\" fill=\"#1565c0\"><title>" + fixed(b * width) +
               "-" + fixed((b + 1) * width) + " ms: " + std::to_string(bins[size_t(b)]) +
               "</title></rect>\n";
    }
    double target = kMargin + kPlotWidth / 2;
    svg += "<line x1=\"" + fixed(target, 1) + "\" x2=\"" + fixed(target, 1) + "\" y1=\"" +
           fixed(kMargin, 0) + "\" y2=\"" + fixed(kMargin + kPlotHeight, 0) +
           "\" stroke=\"#c62828\" stroke-dasharray=\"6 4\"/>\n";
    svg += label(kMargin - 4, kMargin + 4, std::to_string(most), "end");
    svg += label(kMargin, kMargin + kPlotHeight + 16, "0 ms");
    svg += label(target, kMargin + kPlotHeight + 16, fixed(periodMs) + " ms (target)");
    svg += label(kMargin + kPlotWidth, kMargin + kPlotHeight + 16, fixed(periodMs * 2) + "+ ms",
                 "end");
    svg +=
        label(kMargin + kPlotWidth / 2, kMargin + kPlotHeight + 32, "histogram of frame intervals");
    return svg + "</svg>\n";
}

std::string summaryTable(const RunReport& report) {
    std::string html =
        "<table>\n<tr><th>stream</th><th>result</th><th>frames</th><th>empty</th>"
        "<th>achieved fps</th><th>interval median / p99 / max (ms)</th><th>bytes</th>"
        "<th>problems</th></tr>\n";
    for (const StreamResult& s : report.streams) {
        const StatsSummary& st = s.stats;
        std::string problems;
        for (const std::string& p : s.problems) {
            problems += escaped(p) + "<br>";
        }
        html += "<tr><td>" + s.key.text() + "</td><td class=\"" +
                (s.problems.empty() ? "ok\">ok" : "failed\">FAILED") + "</td><td>" +
                std::to_string(st.frames) + "</td><td>" + std::to_string(st.emptyFrames) +
                "</td><td>" + fixed(st.achievedFps) + "</td><td>" + fixed(st.intervalMedianMs) +
                " / " + fixed(st.intervalP99Ms) + " / " + fixed(st.intervalMaxMs) + "</td><td>" +
                std::to_string(st.bytes) + "</td><td>" + problems + "</td></tr>\n";
    }
    return html + "</table>\n";
}

}  // namespace

bool writeHtmlReport(const std::string& dir, const RunReport& report,
                     const std::vector<StreamTrace>& traces,
                     const std::vector<Thumbnail>& thumbnails, std::string* error) {
    const StreamOptions& o = *report.options;
    double periodMs = 1000.0 / o.fps;
    std::string title = "uvc-host stream: " + o.size.text() + " " + o.format->name + " at " +
                        std::to_string(o.fps) + " fps";
    std::string html =
        "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + escaped(title) +
        "</title>\n<style>body{font-family:sans-serif;margin:2em}table{border-collapse:collapse}"
        "td,th{border:1px solid #ccc;padding:4px 8px;text-align:right}.ok{color:#2e7d32}"
        ".failed{color:#c62828}.sheet img{width:160px;margin:4px;border:1px solid #ccc}"
        "figure{display:inline-block;margin:0}figcaption{font-size:11px}</style>\n</head><body>\n";
    html += "<h1>" + escaped(title) + "</h1>\n<p>" + fixed(report.elapsedSec, 1) + " s" +
            (report.interrupted ? " (interrupted)" : "") + ", recoveries " +
            std::to_string(report.recoveries) + ", result: <b class=\"" +
            (report.passed() ? "ok\">ok" : "failed\">FAILED") + "</b></p>\n";
    html += summaryTable(report);
    for (const StreamTrace& t : traces) {
        std::vector<double> atSec;
        std::vector<double> ms;
        intervalsOf(t, &atSec, &ms);
        html += "<h2>stream " + t.key.text() + "</h2>\n";
        html += intervalPlot(atSec, ms, periodMs) + histogram(ms, periodMs);
        std::string sheet;
        for (const Thumbnail& th : thumbnails) {
            if (th.key == t.key) {
                sheet += "<figure><img src=\"" + escaped(th.file) + "\" alt=\"frame " +
                         std::to_string(th.index) + "\"><figcaption>frame " +
                         std::to_string(th.index) + "</figcaption></figure>\n";
            }
        }
        html +=
            sheet.empty()
                ? "<p>no pictures of this stream" +
                      std::string(
                          o.format->kind == FormatKind::H264
                              ? " (H.264 pictures are decoded with ffmpeg, which is not on PATH)"
                              : "") +
                      "</p>\n"
                : "<div class=\"sheet\">\n" + sheet + "</div>\n";
    }
    html += "</body></html>\n";
    std::string path = dir + "/index.html";
    return writeFile(path, reinterpret_cast<const uint8_t*>(html.data()), html.size(), error);
}

}  // namespace uvc_host
