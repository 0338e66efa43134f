// The module over a platform that costs nothing: what is left is its own time.
#include <kvfile/kvfile.h>

#include "programs/actions.h"
#include "programs/costless_platform.h"
#include "programs/program.h"
#include "programs/shapes.h"

#include <array>

namespace bench {

namespace {

using namespace costless;

void openFile(OopType mode) {
  KvfStartup(1);
  if (KvfOpen(file_object, path_object, mode, OOP_FALSE) == OOP_NIL) give_up("open");
}

template <Mode MODE>
Outcome lines(const Job& job, OopType target, OopType eol) {
  const Actions& table = actions();
  const std::string content = contentOf(job.path);
  const std::string eolText(eol_3);
  setContent(content, MODE == Mode::Check ? 1 : job.count, eolText);
  if constexpr (MODE == Mode::Check) keepStoredBytes();
  openFile(mode_r_object);
  const OopType start = oopFromSmallInteger(1);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const OopType line = table.KvfGetLine(file_object, target, start, eol, OOP_NIL);
    if (line == OOP_NIL) break;
    delivery.item(storedBytes().data(), storedBytes().size());
  }
  return {delivery.count(), watch.elapsed()};
}

const OopType line_feed = oopFromSmallInteger(10);

template <Mode MODE>
Outcome newLines(const Job& job) {
  return lines<MODE>(job, OOP_NIL, line_feed);
}
template <Mode MODE>
Outcome reusedLines(const Job& job) {
  return lines<MODE>(job, bytes_object, line_feed);
}
template <Mode MODE>
Outcome longEol(const Job& job) {
  return lines<MODE>(job, OOP_NIL, eol_object);
}

template <Mode MODE>
Outcome bytes(const Job& job) {
  const Actions& table = actions();
  const std::string content = contentOf(job.path);
  const std::string noEol;
  setContent(content, MODE == Mode::Check ? 1 : job.count, noEol);
  openFile(mode_r_object);
  Delivery<MODE> delivery;
  const Stopwatch watch;
  for (;;) {
    const OopType character = table.KvfGetC(file_object);
    if (character == OOP_NIL) break;
    const char byte = static_cast<char>(oopCharacterCode(character));
    delivery.item(&byte, 1);
  }
  return {delivery.count(), watch.elapsed()};
}

Outcome smallWrites(const Job& job) {
  const Actions& table = actions();
  openFile(mode_w_object);
  setSize(small_write_size);
  const OopType one = oopFromSmallInteger(1);
  const OopType amount = oopFromSmallInteger(small_write_size);
  const Stopwatch watch;
  for (int64_t i = 0; i < job.count; ++i) {
    if (table.KvfWrite(file_object, bytes_object, one, amount) != amount) give_up("write");
  }
  return {job.count, watch.elapsed()};
}

using enum Mode;

constexpr std::array<Workload, 5> workloads = {{
    {"lines", newLines<Check>, newLines<Time>},
    {"lines-reused", reusedLines<Check>, reusedLines<Time>},
    {"eol3", longEol<Check>, longEol<Time>},
    {"bytes", bytes<Check>, bytes<Time>},
    {"small-write", smallWrites, smallWrites},
}};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) { return bench::runProgram(argc, argv, bench::workloads); }
