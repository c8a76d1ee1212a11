// core.cpp - vekutils._core: the solver's entry for Python.
//
// A thin layer: one handle object whose call passes NumPy arrays to telmira
// as they are, and the library's words and version. The choice of the matrix
// type, the storage form and the checks of the arrays' shapes live in the
// package (vekutils/__init__.py); this layer checks only what telmira would
// read past the end of or write into wrongly: dtypes, contiguity, lengths.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "telmira.h"

namespace py = pybind11;

namespace {

// The value kinds telmira takes: double or float, real or complex (pairs).
bool is_real_type(int mtype) { return mtype == 1 || mtype == 2 || mtype == -2 || mtype == 11; }

// Checks that arr is a C-contiguous array of the expected dtype and length;
// writable when the solver writes into it.
void check_array(const py::array &arr, const py::dtype &dtype, py::ssize_t length,
                 bool writable, const char *name) {
  if (!arr.dtype().is(dtype))
    throw py::type_error(std::string(name) + " must have dtype " +
                         py::str(py::handle(dtype)).cast<std::string>() + ", not " +
                         py::str(py::handle(arr.dtype())).cast<std::string>());
  if (!(arr.flags() & py::array::c_style))
    throw py::value_error(std::string(name) + " must be C-contiguous");
  if (writable && !arr.writeable())
    throw py::value_error(std::string(name) + " must be writable");
  if (arr.size() < length)
    throw py::value_error(std::string(name) + " holds " + std::to_string(arr.size()) +
                          " values, the call needs " + std::to_string(length));
}

class Handle {
 public:
  Handle() { std::memset(handle_, 0, sizeof handle_); }
  ~Handle() { release(); }
  Handle(const Handle &) = delete;
  Handle &operator=(const Handle &) = delete;

  // One call of telmira; returns its error number.
  int call(int max_fac_store, int matrix_number, int mtype, int ido, int neqns,
           const py::array &a, const py::array &ia, const py::array &ja, const py::array &perm,
           int nb, const py::array &iparam, int msglvl, const py::array &b, const py::array &x) {
    const py::dtype i32 = py::dtype::of<std::int32_t>();
    check_array(iparam, i32, TELMIRA_IPARAM_WORDS, true, "iparam");
    int *ip = static_cast<int *>(const_cast<void *>(iparam.data()));
    const void *ap = nullptr;
    const int *iap = nullptr, *jap = nullptr;
    int *pp = nullptr;
    void *bp = nullptr, *xp = nullptr;
    if (ido > 0) {
      if (neqns < 1) throw py::value_error("neqns must be positive");
      check_array(ia, i32, static_cast<py::ssize_t>(neqns) + 1, false, "ia");
      iap = static_cast<const int *>(ia.data());
      const py::ssize_t nnz = static_cast<py::ssize_t>(iap[neqns]) - 1;
      if (nnz < 0 || iap[0] != 1) throw py::value_error("ia must be one-based: ia[0] == 1");
      check_array(ja, i32, nnz, false, "ja");
      jap = static_cast<const int *>(ja.data());
      // The precision of the handle: fixed by the call that creates the
      // state (iparam(28)), kept by the handle afterwards.
      const bool single = handle_[0] == 0 ? ip[27] == 1 : single_;
      const bool real = is_real_type(mtype);
      py::dtype value = single ? (real ? py::dtype::of<float>() : py::dtype("complex64"))
                               : (real ? py::dtype::of<double>() : py::dtype("complex128"));
      check_array(a, value, nnz, false, "a");
      ap = a.data();
      check_array(perm, i32, neqns, true, "perm");
      pp = static_cast<int *>(const_cast<void *>(perm.data()));
      const py::ssize_t values = static_cast<py::ssize_t>(neqns) * (nb > 0 ? nb : 0);
      check_array(b, value, values, true, "b");
      check_array(x, value, values, true, "x");
      bp = const_cast<void *>(b.data());
      xp = const_cast<void *>(x.data());
      if (handle_[0] == 0) single_ = single;
    }
    int error = 0;
    {
      py::gil_scoped_release unlocked;
      telmira(handle_, &max_fac_store, &matrix_number, &mtype, &ido, &neqns, ap, iap, jap, pp,
              &nb, ip, &msglvl, bp, xp, &error);
    }
    last_ = {max_fac_store, mtype, neqns};
    return error;
  }

  // Releases everything the handle holds (ido -1); nothing when it holds
  // nothing. Returns the error number of the release.
  int release() {
    if (handle_[0] == 0) return 0;
    int iparam[TELMIRA_IPARAM_WORDS] = {0};
    int ido = -1, matrix_number = 1, nb = 1, msglvl = 0, error = 0;
    telmira(handle_, &last_.max_fac_store, &matrix_number, &last_.mtype, &ido, &last_.neqns,
            nullptr, nullptr, nullptr, nullptr, &nb, iparam, &msglvl, nullptr, nullptr, &error);
    return error;
  }

  bool holds_state() const { return handle_[0] != 0; }

 private:
  struct last_call {
    int max_fac_store = 1;
    int mtype = 11;
    int neqns = 1;
  };
  std::intptr_t handle_[TELMIRA_HANDLE_WORDS];
  bool single_ = false;
  last_call last_;
};

}  // namespace

PYBIND11_MODULE(_core, m) {
  m.doc() = "The entry of the libvekutils sparse direct solver (internal; use vekutils).";
  m.attr("HEADER_VERSION") = VEKUTILS_VERSION_STRING;
  m.attr("HANDLE_WORDS") = TELMIRA_HANDLE_WORDS;
  m.attr("IPARAM_WORDS") = TELMIRA_IPARAM_WORDS;
  m.def("library_version", &vekutils_version, "Version of the loaded libvekutils.");
  m.def("error_words", &telmira_error_words, py::arg("error"),
        "The words of an error number of the solver.");
  m.def("status_words", &telmira_status_words, py::arg("error"), py::arg("status"),
        "The words of the status in iparam(30) behind error -3 or -4.");
  m.def("free_buffers", &vek_serv_free_buffers,
        "Releases the idle scratch buffers of all threads.");
  m.def(
      "buffer_stat",
      []() {
        int blocks = 0;
        const std::int64_t bytes = vek_serv_mem_stat(&blocks);
        return py::make_tuple(bytes, blocks);
      },
      "(bytes, blocks) held by the cache of scratch buffers; blocks is -1 when the "
      "cache is off.");
  py::class_<Handle>(m, "Handle")
      .def(py::init<>())
      .def("call", &Handle::call, py::arg("max_fac_store"), py::arg("matrix_number"),
           py::arg("mtype"), py::arg("ido"), py::arg("neqns"), py::arg("a"), py::arg("ia"),
           py::arg("ja"), py::arg("perm"), py::arg("nb"), py::arg("iparam"), py::arg("msglvl"),
           py::arg("b"), py::arg("x"),
           "One call of telmira with NumPy arrays; returns the error number.")
      .def("release", &Handle::release, "Releases all the handle holds (ido -1).")
      .def_property_readonly("holds_state", &Handle::holds_state);
}
