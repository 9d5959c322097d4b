#include "rate/plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "util/constants.h"
#include "util/strings.h"

namespace ictvcf {

using cplx = std::complex<double>;

namespace {

// Page and plotting area, in pixels.
constexpr double kWidth = 760, kHeight = 470;
constexpr double kLeft = 96, kRight = kWidth - 24, kTop = 74, kBottom = kHeight - 64;
const char* const kFont = "DejaVu Sans, Helvetica, Arial, sans-serif";
const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Frame {
  double xlo, xhi, ylo, yhi;
  double px(double x) const { return kLeft + (x - xlo) / (xhi - xlo) * (kRight - kLeft); }
  double py(double y) const { return kBottom - (y - ylo) / (yhi - ylo) * (kBottom - kTop); }
};

// A range that is never empty, widened by `pad` of its length on each side.
void padded(double& lo, double& hi, double pad) {
  if (!(hi > lo)) {
    const double m = std::fabs(lo) > 0 ? std::fabs(lo) * 0.1 : 1.0;
    lo -= m;
    hi += m;
  }
  const double w = hi - lo;
  lo -= pad * w;
  hi += pad * w;
}

// "10⁻⁶"-style text, with Unicode superscripts.
std::string power_of_ten(int e) {
  static const char* const sup[] = {"⁰", "¹", "²", "³", "⁴", "⁵", "⁶", "⁷", "⁸", "⁹"};
  std::string s = e < 0 ? "10⁻" : "10";
  for (char c : std::to_string(std::abs(e))) s += sup[c - '0'];
  return s;
}

// The tick labels of one axis: a common power of ten is moved into the axis title when the
// values are large or small, so that the labels stay short.
struct TickLabels {
  std::vector<std::string> text;
  int power = 0;
};

TickLabels tick_labels(const std::vector<double>& ticks) {
  TickLabels out;
  double biggest = 0.0;
  for (double t : ticks) biggest = std::max(biggest, std::fabs(t));
  if (biggest > 0 && (biggest >= 1e4 || biggest < 1e-2))
    out.power = static_cast<int>(std::floor(std::log10(biggest)));
  const double scale = std::pow(10.0, -out.power);
  const double step = ticks.size() > 1 ? std::fabs(ticks[1] - ticks[0]) * scale : 1.0;
  const int decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
  for (double t : ticks) {
    double v = t * scale;
    if (std::fabs(v) < 1e-9 * step) v = 0.0;  // no "-0"
    out.text.push_back(printed("%.*f", decimals, v));
  }
  return out;
}

// "name (unit)", or "name (10⁻⁶ unit)" when the tick labels are scaled by a power of ten.
std::string axis_title(const std::string& name, const std::string& unit, int power) {
  if (power == 0) return name + " (" + unit + ")";
  return name + " (" + power_of_ten(power) + " " + unit + ")";
}

std::string text(double x, double y, const std::string& s, const char* anchor = "middle",
                 const char* extra = "") {
  return printed("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\"%s>", x, y, anchor, extra) + s +
         "</text>\n";
}

// The names and units of the two axes and the title above the frame.
struct Titles {
  std::string title, x, x_unit, y, y_unit;
};

// Frame, grid, ticks, tick labels and the titles.
std::string axes(const Frame& f, const Titles& names) {
  std::string s;
  const std::vector<double> xt = nice_ticks(f.xlo, f.xhi, 11), yt = nice_ticks(f.ylo, f.yhi, 10);
  const TickLabels xl = tick_labels(xt), yl = tick_labels(yt);
  s += "<g stroke=\"#dddddd\" stroke-width=\"1\">\n";
  for (double x : xt)
    s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", f.px(x), kTop,
                 f.px(x), kBottom);
  for (double y : yt)
    s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", kLeft, f.py(y),
                 kRight, f.py(y));
  s += "</g>\n";
  s += printed(
      "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
      "stroke=\"black\"/>\n",
      kLeft, kTop, kRight - kLeft, kBottom - kTop);
  s += "<g stroke=\"black\">\n";
  for (double x : xt)
    s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", f.px(x), kBottom,
                 f.px(x), kBottom + 5);
  for (double y : yt)
    s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", kLeft - 5, f.py(y),
                 kLeft, f.py(y));
  s += "</g>\n<g font-size=\"13\">\n";
  for (std::size_t i = 0; i < xt.size(); ++i) s += text(f.px(xt[i]), kBottom + 20, xl.text[i]);
  for (std::size_t i = 0; i < yt.size(); ++i)
    s += text(kLeft - 9, f.py(yt[i]) + 4.5, yl.text[i], "end");
  s += "</g>\n<g font-size=\"15\">\n";
  s += text(0.5 * (kLeft + kRight), kHeight - 18, axis_title(names.x, names.x_unit, xl.power));
  const double ymid = 0.5 * (kTop + kBottom);
  s += text(22, ymid, axis_title(names.y, names.y_unit, yl.power), "middle",
            printed(" transform=\"rotate(-90 22 %.1f)\"", ymid).c_str());
  s += text(0.5 * (kLeft + kRight), 28, names.title, "middle", " font-size=\"16\"");
  s += "</g>\n";
  return s;
}

// A path through the points in pixels, broken where y is not a number. Where there are more
// points than pixel columns, each column keeps its lowest and highest point (in their order), so
// that fast oscillations are drawn as the band they fill instead of an aliased curve.
std::string path(const Frame& f, std::span<const double> x, std::span<const double> y,
                 const std::string& style) {
  const bool reduce = x.size() > 2 * static_cast<std::size_t>(kRight - kLeft);
  std::string d;
  bool pen_down = false;
  std::size_t i = 0;
  auto emit = [&](double px, double py) {
    d += printed(pen_down ? "L%.2f %.2f " : "M%.2f %.2f ", px, py);
    pen_down = true;
  };
  while (i < x.size()) {
    if (!std::isfinite(y[i])) {
      pen_down = false;
      ++i;
      continue;
    }
    if (!reduce) {
      emit(f.px(x[i]), f.py(y[i]));
      ++i;
      continue;
    }
    const long column = std::lround(f.px(x[i]));
    std::size_t lo = i, hi = i, j = i;
    for (; j < x.size() && std::isfinite(y[j]) && std::lround(f.px(x[j])) == column; ++j) {
      if (y[j] < y[lo]) lo = j;
      if (y[j] > y[hi]) hi = j;
    }
    const std::size_t a = std::min(lo, hi), b = std::max(lo, hi);
    emit(f.px(x[a]), f.py(y[a]));
    if (b != a) emit(f.px(x[b]), f.py(y[b]));
    i = j;
  }
  return "<path fill=\"none\" " + style + " d=\"" + d + "\"/>\n";
}

std::string header() {
  return printed(
             "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
             "viewBox=\"0 0 %.0f %.0f\" font-family=\"%s\">\n",
             kWidth, kHeight, kWidth, kHeight, kFont) +
         printed("<rect width=\"%.0f\" height=\"%.0f\" fill=\"white\"/>\n", kWidth, kHeight);
}

std::string clip_start() {
  return printed(
      "<clipPath id=\"area\"><rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>"
      "</clipPath>\n<g clip-path=\"url(#area)\">\n",
      kLeft, kTop, kRight - kLeft, kBottom - kTop);
}

// The legend in one row between the title and the frame: a sample stroke and its text per entry.
std::string legend(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string s = "<g font-size=\"13\">\n";
  const double y = kTop - 14;
  double x = kLeft + 4;
  for (const auto& [style, label] : entries) {
    s +=
        printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" ", x, y - 4, x + 30, y - 4) +
        style + "/>\n";
    s += text(x + 36, y, label, "start");
    x += 170;
  }
  return s + "</g>\n";
}

std::string damping_words(const Damping& d) {
  return printed("%s damping, FWHM %.4g cm⁻¹%s",
                 d.shape == DampingShape::gaussian ? "Gaussian" : "Lorentzian",
                 line_fwhm(d) * au2cm, d.chosen_by_default ? " (default)" : "");
}

// "6.292×10¹³"-style text for a positive number.
std::string scientific(double v) {
  const int e = static_cast<int>(std::floor(std::log10(v)));
  return printed("%.3f×", v / std::pow(10.0, e)) + power_of_ten(e);
}

}  // namespace

std::vector<double> nice_ticks(double lo, double hi, int most) {
  std::vector<double> out;
  if (!(hi > lo) || !std::isfinite(lo) || !std::isfinite(hi) || most < 2) return out;
  const double raw = (hi - lo) / (most - 1);
  const double mag = std::pow(10.0, std::floor(std::log10(raw)));
  double step = 10.0 * mag;
  for (double m : {1.0, 2.0, 5.0})
    if (m * mag >= raw) {
      step = m * mag;
      break;
    }
  for (double k = std::ceil(lo / step - 1e-9); k * step <= hi + 1e-9 * step; k += 1.0)
    out.push_back(k * step);
  return out;
}

std::string gap_law_svg(std::span<const double> gaps, std::span<const double> rates, double ead,
                        double rate_at_ead, const Damping& d, double nyquist,
                        const std::string& rate) {
  std::vector<double> x(gaps.size()), y(gaps.size(), kNaN);
  double ylo = std::numeric_limits<double>::infinity(), yhi = -ylo;
  int missing = 0;
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    x[i] = gaps[i] * au2ev;
    if (rates[i] > 0.0) {
      y[i] = std::log10(rates[i] * au_per_second);
      ylo = std::min(ylo, y[i]);
      yhi = std::max(yhi, y[i]);
    } else {
      ++missing;
    }
  }
  if (!(yhi >= ylo)) ylo = yhi = 0.0;
  padded(ylo, yhi, 0.05);
  double xlo = x.empty() ? ead * au2ev : x.front(), xhi = x.empty() ? xlo : x.back();
  padded(xlo, xhi, 0.0);
  const Frame f{xlo, xhi, ylo, yhi};

  std::string s = header();
  s += axes(f, {"Energy-gap law of " + rate + " — " + damping_words(d), "gap ΔE", "eV",
                "log₁₀ " + rate, "s⁻¹"});
  s += clip_start();
  if (nyquist * au2ev < xhi) {
    const double xn = std::max(f.px(nyquist * au2ev), kLeft);
    s += printed("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"#eeeeee\"/>\n",
                 xn, kTop, kRight - xn, kBottom - kTop);
    s += text(xn + 6, kBottom - 12, "aliased: ΔE > π/dt", "start",
              " font-size=\"12\" fill=\"#555555\"");
  }
  s += path(f, x, y, "stroke=\"#1f5fa8\" stroke-width=\"2\"");
  // A dot per gap as well: a positive rate between two non-positive ones has no line to show it.
  s += "<g fill=\"#1f5fa8\">\n";
  for (std::size_t i = 0; i < x.size(); ++i)
    if (std::isfinite(y[i]))
      s += printed("<circle cx=\"%.2f\" cy=\"%.2f\" r=\"1.8\"/>\n", f.px(x[i]), f.py(y[i]));
  s += "</g>\n";
  const double xe = f.px(ead * au2ev);
  s += printed(
      "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#c0392b\" "
      "stroke-dasharray=\"5 4\"/>\n",
      xe, kTop, xe, kBottom);
  std::string mark = printed("ΔE = ead = %.4f eV (%.0f cm⁻¹): ", ead * au2ev, ead * au2cm);
  if (rate_at_ead > 0.0) {
    const double ye = f.py(std::log10(rate_at_ead * au_per_second));
    s += printed("<circle id=\"ead\" cx=\"%.1f\" cy=\"%.1f\" r=\"5\" fill=\"#c0392b\"/>\n", xe, ye);
    mark += rate + " = " + scientific(rate_at_ead * au_per_second) + " s⁻¹";
  } else {
    mark += rate + " ≤ 0 (no logarithm)";
  }
  s += "</g>\n<g font-size=\"13\">\n";
  s += text(kLeft + 4, kTop - 14, mark, "start", " fill=\"#c0392b\"");
  if (missing > 0)
    s += text(kRight, kHeight - 18,
              printed("%d of %zu gaps with %s ≤ 0 not drawn", missing, gaps.size(), rate.c_str()),
              "end", " fill=\"#555555\" font-size=\"12\"");
  s += "</g>\n</svg>\n";
  return s;
}

std::string correlation_svg(std::span<const cplx> c, double dt, const Damping& d) {
  const std::size_t n = c.size();
  std::vector<double> t(n), re(n), im(n), up(n), down(n);
  const double c0 = n > 0 ? std::fabs(c[0].real()) : 0.0;
  double ylo = 0.0, yhi = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    const double tk = dt * static_cast<double>(k);
    t[k] = tk * au2fs;
    re[k] = c[k].real();
    im[k] = c[k].imag();
    up[k] = c0 * damping_at(d, tk);
    down[k] = -up[k];
    ylo = std::min({ylo, re[k], im[k], down[k]});
    yhi = std::max({yhi, re[k], im[k], up[k]});
  }
  padded(ylo, yhi, 0.05);
  double xlo = 0.0, xhi = n > 1 ? t.back() : 1.0;
  padded(xlo, xhi, 0.0);
  const Frame f{xlo, xhi, ylo, yhi};

  const std::string re_style = "stroke=\"#1f5fa8\" stroke-width=\"1.4\"";
  const std::string im_style = "stroke=\"#c0392b\" stroke-width=\"1.4\"";
  const std::string env_style = "stroke=\"#333333\" stroke-width=\"1.2\" stroke-dasharray=\"6 4\"";
  std::string s = header();
  s += axes(f, {"Correlation function C(t) — " + damping_words(d), "time t", "fs", "C(t)", "au"});
  s += clip_start();
  s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#999999\"/>\n",
               kLeft, f.py(0.0), kRight, f.py(0.0));
  s += path(f, t, up, env_style) + path(f, t, down, env_style);
  s += path(f, t, im, im_style) + path(f, t, re, re_style);
  s += "</g>\n";
  s += legend({{re_style, "Re C(t)"}, {im_style, "Im C(t)"}, {env_style, "±C(0)·D(t)"}});
  s += "</svg>\n";
  return s;
}

std::string modes_svg(const Decomposition& d, std::size_t most) {
  const std::size_t n = std::min(most, d.modes.size());
  double lo = 0.0, hi = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double diag = d.modes[i].diagonal * au_per_second,
                 cross = (d.modes[i].share - d.modes[i].diagonal) * au_per_second;
    lo = std::min({lo, diag, cross});
    hi = std::max({hi, diag, cross});
  }
  padded(lo, hi, 0.05);
  const Frame f{0.0, static_cast<double>(std::max<std::size_t>(n, 1)), lo, hi};
  const std::string diag_style = "fill=\"#1f5fa8\"", cross_style = "fill=\"#e08a1e\"";
  std::string s = header();
  // The x axis has no numbers of its own: the bars are labelled one by one.
  const std::vector<double> yt = nice_ticks(lo, hi, 10);
  const TickLabels yl = tick_labels(yt);
  s += "<g stroke=\"#dddddd\" stroke-width=\"1\">\n";
  for (double y : yt)
    s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n", kLeft, f.py(y),
                 kRight, f.py(y));
  s += "</g>\n";
  const double bar = 0.36 * (kRight - kLeft) / f.xhi;
  for (std::size_t i = 0; i < n; ++i) {
    const double x = f.px(static_cast<double>(i) + 0.5);
    const double diag = d.modes[i].diagonal * au_per_second,
                 cross = (d.modes[i].share - d.modes[i].diagonal) * au_per_second;
    for (int part = 0; part < 2; ++part) {
      const double v = part == 0 ? diag : cross;
      const double y0 = f.py(0.0), y1 = f.py(v);
      s += printed("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" %s/>\n",
                   part == 0 ? x - bar : x, std::min(y0, y1), bar, std::fabs(y1 - y0),
                   (part == 0 ? diag_style : cross_style).c_str());
    }
    s += text(x, kBottom + 16, std::to_string(d.modes[i].mode), "middle", " font-size=\"12\"");
    s += text(x, kBottom + 30, printed("%.0f", d.modes[i].frequency * au2cm), "middle",
              " font-size=\"10\" fill=\"#555555\"");
  }
  s += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"black\"/>\n", kLeft,
               f.py(0.0), kRight, f.py(0.0));
  s += printed(
      "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
      "stroke=\"black\"/>\n",
      kLeft, kTop, kRight - kLeft, kBottom - kTop);
  s += "<g font-size=\"13\">\n";
  for (std::size_t i = 0; i < yt.size(); ++i)
    s += text(kLeft - 9, f.py(yt[i]) + 4.5, yl.text[i], "end");
  s += "</g>\n<g font-size=\"15\">\n";
  s += text(0.5 * (kLeft + kRight), kHeight - 8, "mode (frequency in cm⁻¹), by share of k_IC");
  const double ymid = 0.5 * (kTop + kBottom);
  s += text(22, ymid, axis_title("part of k_IC", "s⁻¹", yl.power), "middle",
            printed(" transform=\"rotate(-90 22 %.1f)\"", ymid).c_str());
  s += text(0.5 * (kLeft + kRight), 28,
            printed("The modes that drive internal conversion: k_IC = %s s⁻¹",
                    d.total > 0 ? scientific(d.total * au_per_second).c_str() : "0"),
            "middle", " font-size=\"16\"");
  s += "</g>\n<g font-size=\"13\">\n";
  const double ly = kTop - 14;
  s += printed("<rect x=\"%.1f\" y=\"%.1f\" width=\"14\" height=\"10\" %s/>\n", kLeft + 4, ly - 9,
               diag_style.c_str());
  s += text(kLeft + 24, ly, "own pair (the rate with the mode alone)", "start");
  s += printed("<rect x=\"%.1f\" y=\"%.1f\" width=\"14\" height=\"10\" %s/>\n", kLeft + 330, ly - 9,
               cross_style.c_str());
  s += text(kLeft + 350, ly, "half of its cross pairs", "start");
  s += "</g>\n</svg>\n";
  return s;
}

std::string temps_svg(std::span<const double> temps, std::span<const double> rates,
                      const std::string& rate) {
  std::vector<double> x, y;
  bool zero = false;
  double ylo = std::numeric_limits<double>::infinity(), yhi = -ylo;
  for (std::size_t i = 0; i < temps.size(); ++i) {
    if (!(temps[i] > 0.0)) {
      zero = true;
      continue;
    }
    x.push_back(1000.0 / temps[i]);
    y.push_back(rates[i] > 0.0 ? std::log10(rates[i] * au_per_second) : kNaN);
    if (std::isfinite(y.back())) ylo = std::min(ylo, y.back()), yhi = std::max(yhi, y.back());
  }
  if (!(yhi >= ylo)) ylo = yhi = 0.0;
  padded(ylo, yhi, 0.05);
  double xlo = x.empty() ? 0.0 : *std::min_element(x.begin(), x.end());
  double xhi = x.empty() ? 1.0 : *std::max_element(x.begin(), x.end());
  padded(xlo, xhi, 0.05);
  const Frame f{xlo, xhi, ylo, yhi};
  std::vector<std::size_t> order(x.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](auto a, auto b) { return x[a] < x[b]; });
  std::vector<double> xs, ys;
  for (std::size_t i : order) xs.push_back(x[i]), ys.push_back(y[i]);
  std::string s = header();
  s += axes(f, {"Temperature dependence of " + rate, "1000/T", "K⁻¹", "log₁₀ " + rate, "s⁻¹"});
  s += clip_start();
  s += path(f, xs, ys, "stroke=\"#1f5fa8\" stroke-width=\"2\"");
  s += "<g fill=\"#1f5fa8\">\n";
  for (std::size_t i = 0; i < xs.size(); ++i)
    if (std::isfinite(ys[i]))
      s += printed("<circle cx=\"%.2f\" cy=\"%.2f\" r=\"3.5\"/>\n", f.px(xs[i]), f.py(ys[i]));
  s += "</g>\n</g>\n";
  if (zero)
    s += text(kRight, kHeight - 18, "T = 0 K is in the file, not on this axis", "end",
              " fill=\"#555555\" font-size=\"12\"");
  s += "</svg>\n";
  return s;
}

std::string emission_svg(std::span<const double> omega, std::span<const double> sigma, double k_r,
                         const Damping& d, double temp, double refractive_index) {
  const std::size_t n = omega.size();
  double peak = 0.0;
  for (double v : sigma) peak = std::max(peak, v);
  std::vector<double> x(n), y(n);
  for (std::size_t i = 0; i < n; ++i) {
    x[i] = omega[i] * au2cm;
    y[i] = peak > 0.0 ? sigma[i] / peak : 0.0;
  }
  double xlo = n > 0 ? x.front() : 0.0, xhi = n > 0 ? x.back() : 1.0, ylo = 0.0, yhi = 1.0;
  padded(xlo, xhi, 0.0);
  padded(ylo, yhi, 0.04);
  const Frame f{xlo, xhi, ylo, yhi};
  const std::string style = "stroke=\"#1f5fa8\" stroke-width=\"2\"";
  std::string s = header();
  s += axes(f, {"Emission spectrum — " + damping_words(d), "photon energy ω", "cm⁻¹", "σ_em / peak",
                "1"});
  s += clip_start();
  s += path(f, x, y, style);
  s += "</g>\n<g font-size=\"13\">\n";
  s += text(kLeft + 4, kTop - 14,
            "k_r = " + (k_r > 0.0 ? scientific(k_r * au_per_second) : std::string("0")) +
                printed(" s⁻¹ at %.4g K, n = %.4g", temp, refractive_index),
            "start", " fill=\"#c0392b\"");
  s += "</g>\n</svg>\n";
  return s;
}

}  // namespace ictvcf
