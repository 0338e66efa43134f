// Random texts, good and bad: both loaders against the literal model, and printing back.
#include "bytestrings/bytes_fixture.h"

#include <rapidcheck.h>

namespace kvtest {
namespace {

// Mostly digits and separators; now and then a carriage return or any other byte.
rc::Gen<char> character() {
  return rc::gen::weightedOneOf<char>({{60, rc::gen::inRange<char>('0', '9' + 1)},
                                       {30, rc::gen::element(' ', '\t', '\n')},
                                       {1, rc::gen::just('\r')},
                                       {1, rc::gen::arbitrary<char>()}});
}

// Short texts of such characters, and long ones made of values around a long run of separators, so
// that the fetch and store buffers are passed.
std::string anyText() {
  const std::string head = *rc::gen::container<std::string>(character());
  if (*rc::gen::inRange(0, 4) != 0) return head;
  const int fields = *rc::gen::inRange(0, 2500);
  const auto pad = *rc::gen::inRange<size_t>(0, 4200);
  std::string text(pad, ' ');
  for (int i = 0; i < fields; ++i) text += std::to_string((i * 7919) % 300) + ' ';
  return text + head;
}

int64_t anyAmount() {
  return *rc::gen::weightedOneOf<int64_t>({{3, rc::gen::just(LOTS)},
                                           {3, rc::gen::inRange<int64_t>(-2, 12)},
                                           {2, rc::gen::inRange<int64_t>(0, 5000)},
                                           {1, rc::gen::arbitrary<int64_t>()}});
}

class LoadingModel : public BytesTest {
 protected:
  void compareFile(const std::string& text, int64_t amount, bool compressed) {
    const OopType file = openText(text, compressed);
    const OopType target = emptyTarget();
    const OopType answer = loadFile(file, target, amount);
    ModelFile model{text};
    const std::string expected = modelLoadFile(&model, amount);
    RC_ASSERT(bytes(target) == expected);
    RC_ASSERT(answer == smallInt(static_cast<int64>(expected.size())));
    RC_ASSERT(call("KvfPosition", {file}) == smallInt(static_cast<int64>(model.position)));
    RC_ASSERT(takeRecordError(file) == (std::pair<int64, std::string>{0, ""}));
    call("KvfClose", {file});
  }
};

TEST_F(LoadingModel, PlainFilesFollowIt) {
  EXPECT_TRUE(rc::check("loading from a plain file",
                        [this] { compareFile(anyText(), anyAmount(), false); }));
}

TEST_F(LoadingModel, CompressedFilesFollowIt) {
  EXPECT_TRUE(rc::check("loading from a compressed file",
                        [this] { compareFile(anyText(), anyAmount(), true); }));
}

TEST_F(LoadingModel, ByteObjectsFollowIt) {
  EXPECT_TRUE(rc::check("loading from a byte object", [this] {
    const std::string text = anyText();
    const int64_t amount = anyAmount();
    const auto size = static_cast<int64_t>(text.size());
    const int64_t start = *rc::gen::weightedOneOf<int64_t>(
        {{4, rc::gen::just<int64_t>(1)}, {4, rc::gen::inRange<int64_t>(-1, size + 3)}});
    const OopType target = emptyTarget();
    const OopType answer = loadObject(target, amount, str(text), start);
    const ModelLoad model = modelLoadObject(text, start, amount);
    if (model.answer.has_value()) {
      RC_ASSERT(answer == smallInt(*model.answer));
      RC_ASSERT(bytes(target) == model.stored);
    } else {
      RC_ASSERT(answer == OOP_NIL);
      RC_ASSERT(bytes(target) == model.stored.substr(0, model.stored.size() / 2048 * 2048));
    }
  }));
}

TEST_F(LoadingModel, PrintedBytesComeBack) {
  EXPECT_TRUE(rc::check("printing and loading back", [this](const std::string& some) {
    std::string data = some;
    const int times = *rc::gen::element(1, 1, 40, 100);
    for (int i = 1; i < times; ++i) data += some;
    const OopType text = print(kvhost::newByteArray(data));
    RC_ASSERT(bytes(text) == modelPrint(data));
    const OopType back = emptyTarget();
    const int64 length = static_cast<int64>(bytes(text).size());
    RC_ASSERT(loadObject(back, LOTS, text, 1) == smallInt(length + 1));
    RC_ASSERT(bytes(back) == data);
    compareFile(bytes(text), LOTS, false);
  }));
}

}  // namespace
}  // namespace kvtest
