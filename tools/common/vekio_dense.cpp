// vekio_dense.cpp - Matrix Market files of dense blocks of vectors.
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "vekio.h"

namespace vekio {

namespace {

std::string lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string where(const std::string &path, long line) {
  return path + ":" + std::to_string(line) + ": ";
}

// The next line that is neither blank nor a comment; false at the end.
bool next_line(std::istream &in, std::string &line, long &lineno) {
  while (std::getline(in, line)) {
    ++lineno;
    const std::size_t p = line.find_first_not_of(" \t\r");
    if (p != std::string::npos && line[p] != '%') return true;
  }
  return false;
}

// Reads one value (two for complex) from the rest of a line; nothing else
// may follow.
bool read_value(std::istringstream &ss, bool cplx, double &re, double &im) {
  im = 0.0;
  if (!(ss >> re)) return false;
  if (cplx && !(ss >> im)) return false;
  std::string rest;
  return !(ss >> rest) && std::isfinite(re) && std::isfinite(im);
}

}  // namespace

bool read_matrix_market_dense(const std::string &path, dense_block &block, std::string &err) {
  std::ifstream in(path);
  if (!in) {
    err = path + ": cannot open the file";
    return false;
  }
  std::string line;
  long lineno = 1;
  if (!std::getline(in, line)) {
    err = where(path, 1) + "empty file";
    return false;
  }
  std::istringstream hs(line);
  std::string banner, object, format, field, symmetry;
  hs >> banner >> object >> format >> field >> symmetry;
  object = lower(object);
  format = lower(format);
  field = lower(field);
  symmetry = lower(symmetry);
  if (banner != "%%MatrixMarket" || object != "matrix") {
    err = where(path, 1) + "not a Matrix Market matrix file (no %%MatrixMarket matrix banner)";
    return false;
  }
  if (format != "array" && format != "coordinate") {
    err = where(path, 1) + "unknown format '" + format + "'";
    return false;
  }
  if (field != "real" && field != "double" && field != "integer" && field != "complex") {
    err = where(path, 1) + "field '" + field + "' is not real, integer or complex";
    return false;
  }
  if (symmetry != "general") {
    err = where(path, 1) + "a block of vectors must be general, not '" + symmetry + "'";
    return false;
  }
  const bool cplx = field == "complex";
  const bool array = format == "array";
  if (!next_line(in, line, lineno)) {
    err = where(path, lineno) + "missing size line";
    return false;
  }
  long rows = -1, cols = -1, entries = -1;
  {
    std::istringstream ss(line);
    std::string rest;
    const bool ok = array ? static_cast<bool>(ss >> rows >> cols)
                          : static_cast<bool>(ss >> rows >> cols >> entries);
    if (!ok || (ss >> rest) || rows < 1 || cols < 1 || (!array && entries < 0) ||
        rows > 2147483647L || cols > 2147483647L || rows * cols > (1L << 40)) {
      err = where(path, lineno) +
            (array ? "bad size line (want: rows columns)" : "bad size line (want: rows columns entries)");
      return false;
    }
  }
  dense_block b;
  b.n = static_cast<int>(rows);
  b.k = static_cast<int>(cols);
  b.cplx = cplx;
  const int w = cplx ? 2 : 1;
  b.v.assign(static_cast<std::size_t>(rows * cols * w), 0.0);
  const long count = array ? rows * cols : entries;
  for (long e = 0; e < count; ++e) {
    if (!next_line(in, line, lineno)) {
      err = where(path, lineno) + "the file ends after " + std::to_string(e) + " of " +
            std::to_string(count) + " values";
      return false;
    }
    std::istringstream ss(line);
    long pos = e;
    if (!array) {
      long i = 0, j = 0;
      if (!(ss >> i >> j) || i < 1 || i > rows || j < 1 || j > cols) {
        err = where(path, lineno) + "bad entry (want: row column value, in range)";
        return false;
      }
      pos = (j - 1) * rows + (i - 1);
    }
    double re, im;
    if (!read_value(ss, cplx, re, im)) {
      err = where(path, lineno) + (cplx ? "bad value (want: two finite numbers)"
                                        : "bad value (want: one finite number)");
      return false;
    }
    b.v[static_cast<std::size_t>(pos * w)] += re;
    if (cplx) b.v[static_cast<std::size_t>(pos * w + 1)] += im;
  }
  if (next_line(in, line, lineno)) {
    err = where(path, lineno) + "more values than the size line announces";
    return false;
  }
  block = std::move(b);
  return true;
}

bool write_matrix_market_dense(const std::string &path, const dense_block &block,
                               std::string &err) {
  FILE *f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    err = path + ": cannot open the file for writing";
    return false;
  }
  std::fprintf(f, "%%%%MatrixMarket matrix array %s general\n", block.cplx ? "complex" : "real");
  std::fprintf(f, "%d %d\n", block.n, block.k);
  const std::size_t count = static_cast<std::size_t>(block.n) * block.k;
  for (std::size_t e = 0; e < count; ++e) {
    if (block.cplx)
      std::fprintf(f, "%.17g %.17g\n", block.v[2 * e], block.v[2 * e + 1]);
    else
      std::fprintf(f, "%.17g\n", block.v[e]);
  }
  const bool ok = std::ferror(f) == 0;
  if (std::fclose(f) != 0 || !ok) {
    err = path + ": write failed";
    return false;
  }
  return true;
}

}  // namespace vekio
