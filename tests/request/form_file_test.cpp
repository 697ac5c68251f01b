#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tarn.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

// The slots that a script reads with the node's getters.

struct File : Node {
  File() : Node(TARN_FORM_FILE_MAGIC) {}
  File(const char *name, const char *fileName, const char *contentType, std::string_view data)
      : File() {
    FormFile_init(*this, name, fileName, contentType, data.data(),
                  static_cast<uint32_t>(data.size()));
  }
  // A file for tests that need only the field name and the bytes.
  File(const char *name, std::string_view data) : File(name, "a.txt", "text/plain", data) {}
};

struct FileList : Node {
  FileList() : Node(TARN_FORM_FILE_LIST_MAGIC) {}
  ~FileList() { FormFileList_delete(*this); }
};

struct Entry : Node {
  Entry() : Node(TARN_FORM_ENTRY_MAGIC) { FormEntry_init(*this, "city", "Paris", 5); }
};

const char *text(TarnHandle *file, TarnFileSlot slot) {
  return CGIgs_getString(file, slot, TARN_FORM_FILE_MAGIC);
}

TarnHandle contents(TarnHandle *file) {
  return CGIgs_getStruct(file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC);
}

const char *bytes(TarnHandle *file) {
  TarnHandle buffer = contents(file);
  return reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
}

std::string_view data(TarnHandle *file) {
  const char *first = bytes(file);
  return first ? std::string_view(first, FormFile_getDataLength(file)) : std::string_view();
}

void expectFile(TarnHandle *file, const char *name, const char *fileName, const char *contentType,
                std::string_view itsData) {
  EXPECT_STREQ(name, text(file, TARN_FILE_FIELD_NAME));
  EXPECT_STREQ(fileName, text(file, TARN_FILE_FILENAME));
  EXPECT_STREQ(contentType, text(file, TARN_FILE_CONTENT_TYPE));
  EXPECT_EQ(itsData, data(file));
  EXPECT_EQ(itsData.size(), FormFile_getDataLength(file));
}

// ---- One file -----------------------------------------------------------------------------------

TEST(FormFile, StartsWithoutTextsOrBytes) {
  File file;
  EXPECT_EQ(22842U, CGIgs_getMagic(file));
  expectFile(file, nullptr, nullptr, nullptr, "");
  EXPECT_EQ(0U, contents(file));
}

TEST(FormFile, InitKeepsCopiesOfTheTextsAndTheBytes) {
  char name[] = "photo";
  char fileName[] = "cat.png";
  char contentType[] = "image/png";
  char meow[] = "meow";
  File file;
  EXPECT_EQ(TARN_OK, FormFile_init(file, name, fileName, contentType, meow, 4));
  name[0] = fileName[0] = contentType[0] = meow[0] = '?';
  expectFile(file, "photo", "cat.png", "image/png", "meow");
}

TEST(FormFile, BytesAreInAByteBufferOwnedByTheFile) {
  File file("photo", "meow");
  TarnHandle buffer = contents(file);
  EXPECT_EQ(22878U, CGIgs_getChildMagic(file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC));
  EXPECT_EQ(22878U, CGIgs_getMagic(&buffer));
  EXPECT_EQ(4U, CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC));
  EXPECT_STREQ("meow", bytes(file));
}

TEST(FormFile, BytesMayContainZerosAndAreFollowedByOne) {
  const std::string_view raw("\0\x89PNG\r\n\0", 8);
  File file("photo", raw);
  EXPECT_EQ(8U, FormFile_getDataLength(file));
  EXPECT_EQ(raw, data(file));
  EXPECT_EQ('\0', bytes(file)[8]);
}

TEST(FormFile, InitStoresTheClientsTextsUnchanged) {
  const char *hostile = "../../etc/passwd\"; x=\r\n\x01\xff";
  File file(hostile, hostile, hostile, "x");
  expectFile(file, hostile, hostile, hostile, "x");
  File empty("", "", "", "x");
  expectFile(empty, "", "", "", "x");
}

TEST(FormFile, InitWithLengthZeroCreatesAFileWithoutBytes) {
  File file;
  EXPECT_EQ(TARN_OK, FormFile_init(file, "photo", "empty.png", "image/png", "ignored", 0));
  expectFile(file, "photo", "empty.png", "image/png", "");
  TarnHandle buffer = contents(file);
  EXPECT_EQ(1U, CGIgs_IsA(&buffer, TARN_BYTE_BUFFER_MAGIC));
  EXPECT_EQ(0U, CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
}

TEST(FormFile, InitWithANullArgumentChangesNothing) {
  File fresh;
  File filled("photo", "cat.png", "image/png", "meow");
  for (uint32_t length : {0U, 1U, UINT32_MAX}) {
    SCOPED_TRACE(length);
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormFile_init(fresh, "n", "f", "t", nullptr, length));
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormFile_init(filled, "n", "f", "t", nullptr, length));
  }
  for (TarnHandle *file : {static_cast<TarnHandle *>(fresh), static_cast<TarnHandle *>(filled)}) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormFile_init(file, nullptr, "f", "t", "d", 1));
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormFile_init(file, "n", nullptr, "t", "d", 1));
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormFile_init(file, "n", "f", nullptr, "d", 1));
  }
  expectFile(fresh, nullptr, nullptr, nullptr, "");
  EXPECT_EQ(0U, contents(fresh));
  expectFile(filled, "photo", "cat.png", "image/png", "meow");
}

TEST(FormFile, InitOnAnotherTypeReturnsWrongTypeWhateverTheArguments) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, FormFile_init(stranger, "n", "f", "t", "d", 1));
    EXPECT_EQ(TARN_WRONG_TYPE, FormFile_init(stranger, nullptr, nullptr, nullptr, nullptr, 0));
  });
}

TEST(FormFile, InitAgainReplacesEverything) {
  File file("photo", "cat.png", "image/png", "meow");
  EXPECT_EQ(TARN_OK, FormFile_init(file, "note", "a.txt", "text/plain", "hello!", 6));
  expectFile(file, "note", "a.txt", "text/plain", "hello!");
  EXPECT_EQ(TARN_OK, FormFile_init(file, "note", "b.txt", "text/html", "", 0));
  expectFile(file, "note", "b.txt", "text/html", "");
}

TEST(FormFile, InitEmptiesTheOtherSlotsExceptStringsThreeToSeven) {
  File file("photo", "meow");
  CGIgs_setInt(file, 0, 7, TARN_FORM_FILE_MAGIC);
  CGIgs_setString(file, 3, "kept", TARN_FORM_FILE_MAGIC);
  EXPECT_EQ(TARN_OK, FormFile_init(file, "n", "f", "t", "d", 1));
  EXPECT_EQ(0U, CGIgs_getInt(file, 0, TARN_FORM_FILE_MAGIC));
  EXPECT_STREQ("kept", CGIgs_getString(file, 3, TARN_FORM_FILE_MAGIC));
}

TEST(FormFile, InitAcceptsTheFilesOwnTextsInAnyOrderAndItsOwnBytes) {
  File file("photo", "cat.png", "image/png", "meow");
  EXPECT_EQ(TARN_OK,
            FormFile_init(file, text(file, TARN_FILE_FIELD_NAME), text(file, TARN_FILE_FILENAME),
                          text(file, TARN_FILE_CONTENT_TYPE), bytes(file), 4));
  expectFile(file, "photo", "cat.png", "image/png", "meow");
  EXPECT_EQ(TARN_OK,
            FormFile_init(file, text(file, TARN_FILE_FILENAME), text(file, TARN_FILE_CONTENT_TYPE),
                          text(file, TARN_FILE_FIELD_NAME), bytes(file) + 1, 3));
  expectFile(file, "cat.png", "image/png", "photo", "eow");
  EXPECT_EQ(
      TARN_OK,
      FormFile_init(file, text(file, TARN_FILE_FIELD_NAME) + 4, text(file, TARN_FILE_FIELD_NAME),
                    text(file, TARN_FILE_FILENAME) + 6, text(file, TARN_FILE_CONTENT_TYPE), 5));
  expectFile(file, "png", "cat.png", "png", "photo");
}

TEST(FormFile, BytesStayReadableAfterTheFileIsReusedOrDeleted) {
  const char *first = nullptr;
  const char *second = nullptr;
  {
    File file("photo", "first");
    first = bytes(file);
    FormFile_init(file, "photo", "cat.png", "image/png", "second", 6);
    second = bytes(file);
  }
  EXPECT_STREQ("first", first);
  EXPECT_STREQ("second", second);
}

TEST(FormFile, NodeClearKeepsTheContentType) {
  File file("photo", "cat.png", "image/png", "meow");
  EXPECT_EQ(TARN_OK, CGIgs_clear(file, TARN_FORM_FILE_MAGIC));
  expectFile(file, nullptr, nullptr, "image/png", "");
}

TEST(FormFile, DataLengthIsZeroWithoutAFileOrABuffer) {
  File file;
  EXPECT_EQ(0U, FormFile_getDataLength(file));
  withEveryOtherType([](TarnHandle *stranger) { EXPECT_EQ(0U, FormFile_getDataLength(stranger)); });
}

TEST(FormFile, ChildOfAnotherTypeCountsAsNoBytes) {
  Entry entry;
  File file("photo", "meow");
  CGIgs_setStruct(file, TARN_FILE_BYTES, entry, TARN_FORM_FILE_MAGIC, TARN_FORM_ENTRY_MAGIC);
  EXPECT_EQ(0U, FormFile_getDataLength(file));
  EXPECT_EQ(0U, FormFile_writeToStream(file, stdout));
}

TEST(FormFile, ListParkedInPlaceOfTheBytesCountsAsNoBytes) {
  tarn_test::List parked{1, 2, 3};
  File file;
  ASSERT_EQ(TARN_OK, CGIgs_setList(file, 2, parked, TARN_FORM_FILE_MAGIC));
  parked.forget();
  EXPECT_EQ(0U, FormFile_getDataLength(file));
  EXPECT_EQ(0U, FormFile_writeToStream(file, stdout));
  EXPECT_EQ(TARN_OK, FormFile_init(file, "n", "f", "t", "data", 4));
  expectFile(file, "n", "f", "t", "data");
}

// ---- Comparing files ----------------------------------------------------------------------------

TEST(FormFile, CompareIgnoresCaseAndBytes) {
  File a("photo", "cat.png", "image/png", "meow");
  File b("PHOTO", "Cat.PNG", "IMAGE/png", "woof woof");
  EXPECT_EQ(0U, FormFile_compare(a, b));
  EXPECT_EQ(0U, FormFile_compare(b, a));
  EXPECT_EQ(0U, FormFile_compare(a, a));
}

TEST(FormFile, CompareIsOneWhenAnyTextDiffers) {
  File file("photo", "cat.png", "image/png", "meow");
  File name("video", "cat.png", "image/png", "meow");
  File fileName("photo", "dog.png", "image/png", "meow");
  File contentType("photo", "cat.png", "image/gif", "meow");
  for (TarnHandle *other : {static_cast<TarnHandle *>(name), static_cast<TarnHandle *>(fileName),
                            static_cast<TarnHandle *>(contentType)}) {
    EXPECT_EQ(1U, FormFile_compare(file, other));
    EXPECT_EQ(1U, FormFile_compare(other, file));
  }
}

TEST(FormFile, CompareTreatsTwoMissingTextsAsEqualAndOneAsDifferent) {
  File empty;
  File another;
  File file("", "", "", "");
  EXPECT_EQ(0U, FormFile_compare(empty, another));
  EXPECT_EQ(1U, FormFile_compare(empty, file));
  EXPECT_EQ(1U, FormFile_compare(file, empty));
}

TEST(FormFile, CompareReturnsOneWhenEitherHandleIsNotAFile) {
  File file("photo", "meow");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(1U, FormFile_compare(file, stranger));
    EXPECT_EQ(1U, FormFile_compare(stranger, file));
    EXPECT_EQ(1U, FormFile_compare(stranger, stranger));
  });
}

TEST(FormFile, CompareNameIgnoresCaseAndOrders) {
  File file("Photo", "meow");
  EXPECT_EQ(0, FormFile_compareName(file, "pHOTO"));
  EXPECT_LT(FormFile_compareName(file, "video"), 0);
  EXPECT_GT(FormFile_compareName(file, "audio"), 0);
  EXPECT_LT(FormFile_compareName(file, "photos"), 0);
}

TEST(FormFile, CompareNameReturnsOneWithoutAFileOrANameUnlikeAnEntry) {
  File file("photo", "meow");
  Entry entry;
  EXPECT_EQ(1, FormFile_compareName(file, nullptr));
  EXPECT_EQ(-1, FormEntry_compareName(entry, nullptr));
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(1, FormFile_compareName(stranger, "photo"));
    EXPECT_EQ(1, FormFile_compareName(stranger, nullptr));
    EXPECT_EQ(-1, FormEntry_compareName(stranger, "photo"));
  });
}

TEST(FormFile, CompareNameOrdersAFileWithoutANameFirst) {
  File file;
  EXPECT_EQ(-1, FormFile_compareName(file, ""));
  EXPECT_EQ(1, FormFile_compareName(file, nullptr));
}

// ---- Writing a file out -------------------------------------------------------------------------

using Stream = std::unique_ptr<FILE, decltype([](FILE *stream) { std::fclose(stream); })>;

constexpr char kRefused = '!';

// A device that refuses one byte value and records all others.
class Device {
 public:
  explicit Device(int buffering)
      : stream_(fopencookie(this, "w", {nullptr, take, nullptr, nullptr})) {
    std::setvbuf(stream_.get(), nullptr, buffering, BUFSIZ);
  }
  operator FILE *() { return stream_.get(); }
  const std::string &accepted() const { return accepted_; }

 private:
  static ssize_t take(void *self, const char *offered, size_t size) {
    const std::string_view all(offered, size);
    const std::string_view good = all.substr(0, all.find(kRefused));
    static_cast<Device *>(self)->accepted_ += good;
    return static_cast<ssize_t>(good.size());
  }

  std::string accepted_;
  Stream stream_;
};

Stream fullDevice(int buffering) {
  Stream stream(std::fopen("/dev/full", "w"));
  if (stream) std::setvbuf(stream.get(), nullptr, buffering, BUFSIZ);
  return stream;
}

TEST(FormFile, WriteToStreamWritesEveryByteOnce) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  all.erase(all.find(kRefused), 1);
  for (int buffering : {_IOFBF, _IOLBF, _IONBF}) {
    SCOPED_TRACE(buffering);
    File file("raw", all);
    Device device(buffering);
    EXPECT_EQ(0U, FormFile_writeToStream(file, device));
    std::fflush(device);
    EXPECT_EQ(all, device.accepted());
  }
}

TEST(FormFile, WriteToStreamWritesFilesLargerThanTheStreamsBuffer) {
  std::string large;
  for (uint32_t i = 0; large.size() < 3 * BUFSIZ; ++i) large += std::to_string(i);
  File file("raw", large);
  Device device(_IOFBF);
  EXPECT_EQ(0U, FormFile_writeToStream(file, device));
  std::fflush(device);
  EXPECT_EQ(large, device.accepted());
}

TEST(FormFile, WriteToStreamAppendsToTheStream) {
  File file("photo", "meow");
  Device device(_IOFBF);
  std::fputs("cat: ", device);
  EXPECT_EQ(0U, FormFile_writeToStream(file, device));
  EXPECT_EQ(0U, FormFile_writeToStream(file, device));
  std::fputs(".", device);
  std::fflush(device);
  EXPECT_EQ("cat: meowmeow.", device.accepted());
}

TEST(FormFile, WriteToStreamDoesNotFlush) {
  File file("photo", "meow");
  Device device(_IOFBF);
  EXPECT_EQ(0U, FormFile_writeToStream(file, device));
  EXPECT_EQ("", device.accepted());
  std::fflush(device);
  EXPECT_EQ("meow", device.accepted());
}

TEST(FormFile, WriteToStreamWithoutAFileOrBytesWritesNothingAndReturnsZero) {
  File fresh;
  File empty("photo", "");
  Device device(_IONBF);
  EXPECT_EQ(0U, FormFile_writeToStream(fresh, device));
  EXPECT_EQ(0U, FormFile_writeToStream(empty, device));
  withEveryOtherType(
      [&](TarnHandle *stranger) { EXPECT_EQ(0U, FormFile_writeToStream(stranger, device)); });
  EXPECT_EQ("", device.accepted());
}

TEST(FormFile, WriteToStreamNeedsBothTheBytesAndTheirCount) {
  Device device(_IONBF);
  File countless("photo", "meow");
  TarnHandle buffer = contents(countless);
  CGIgs_setInt(&buffer, TARN_BYTE_BUFFER_LENGTH, 0, TARN_BYTE_BUFFER_MAGIC);
  EXPECT_EQ(0U, FormFile_writeToStream(countless, device));
  File byteless("photo", "meow");
  buffer = contents(byteless);
  CGIgs_setFixed(&buffer, 0, TARN_BYTE_BUFFER_MAGIC);
  EXPECT_EQ(0U, FormFile_writeToStream(byteless, device));
  EXPECT_EQ("", device.accepted());
}

TEST(FormFile, WriteToStreamWithoutBytesReturnsZeroEvenOnAFullDevice) {
  File empty("photo", "");
  Stream stream = fullDevice(_IONBF);
  ASSERT_TRUE(stream);
  EXPECT_EQ(0U, FormFile_writeToStream(empty, stream.get()));
}

TEST(FormFile, WriteToStreamReturnsOneWhenEveryWriteFails) {
  File file("photo", "hello");
  Stream stream = fullDevice(_IONBF);
  ASSERT_TRUE(stream);
  EXPECT_EQ(1U, FormFile_writeToStream(file, stream.get()));
  EXPECT_NE(0, std::ferror(stream.get()));
}

TEST(FormFile, WriteToAFullDeviceReturnsOneOnceTheBufferOverflows) {
  File file("photo", std::string(2 * BUFSIZ, 'x'));
  Stream stream = fullDevice(_IOFBF);
  ASSERT_TRUE(stream);
  EXPECT_EQ(1U, FormFile_writeToStream(file, stream.get()));
}

TEST(FormFile, WriteToAFullDeviceReturnsZeroWhileTheBytesFitTheBuffer) {
  File file("photo", "hello");
  Stream stream = fullDevice(_IOFBF);
  ASSERT_TRUE(stream);
  EXPECT_EQ(0U, FormFile_writeToStream(file, stream.get()));
  EXPECT_EQ(EOF, std::fflush(stream.get()));
}

TEST(FormFile, WriteToALineBufferedFullDeviceReturnsOneIfThereIsALineEnd) {
  for (const char *before : {"", "begun "}) {
    for (const char *lines : {"one\ntwo", "one\n", "\n"}) {
      File file("note", lines);
      Stream stream = fullDevice(_IOLBF);
      ASSERT_TRUE(stream);
      std::fputs(before, stream.get());
      EXPECT_EQ(1U, FormFile_writeToStream(file, stream.get()))
          << '"' << before << "\", " << testing::PrintToString(lines);
    }
  }
}

TEST(FormFile, WriteToAReadOnlyStreamReturnsOne) {
  File file("photo", "hello");
  Stream stream(std::fopen("/dev/null", "r"));
  ASSERT_TRUE(stream);
  EXPECT_EQ(1U, FormFile_writeToStream(file, stream.get()));
}

TEST(FormFile, WriteContinuesAfterARefusedByteAndReturnsOne) {
  const struct {
    const char *data;
    const char *taken;
  } cases[] = {
      {"ab!cd", "abcd"}, {"!abcd", "abcd"}, {"abcd!", "abcd"}, {"a!!b!c", "abc"}, {"!", ""}};
  for (const auto &[offered, taken] : cases) {
    File file("photo", offered);
    Device device(_IONBF);
    EXPECT_EQ(1U, FormFile_writeToStream(file, device)) << offered;
    EXPECT_EQ(taken, device.accepted()) << offered;
  }
}

TEST(FormFile, WriteToANullStreamReturnsOneWhenThereAreBytes) {
  File file("photo", "meow");
  File empty("photo", "");
  EXPECT_EQ(1U, FormFile_writeToStream(file, nullptr));
  EXPECT_EQ(0U, FormFile_writeToStream(empty, nullptr));
  withEveryOtherType(
      [](TarnHandle *stranger) { EXPECT_EQ(0U, FormFile_writeToStream(stranger, nullptr)); });
}

// ---- Lists of files -----------------------------------------------------------------------------

TEST(FormFileList, CopiesAreIndependentButShareTheBytesIncludingZeros) {
  const std::string_view raw("me\0w", 4);
  FileList list;
  File file("photo", "cat.png", "image/png", raw);
  ASSERT_EQ(TARN_OK, FormFileList_addEntry(list, file));
  TarnHandle clone = 0;
  ASSERT_EQ(TARN_OK, FormFileList_clone(list, &clone));
  for (TarnHandle *holder : {static_cast<TarnHandle *>(list), &clone}) {
    SCOPED_TRACE(holder == &clone ? "clone" : "list");
    TarnHandle copy = FormFileList_getByIndex(holder, 0);
    EXPECT_NE(contents(file), contents(&copy));
    EXPECT_EQ(bytes(file), bytes(&copy));
  }

  FormFile_init(file, "note", "a.txt", "text/plain", "changed", 7);
  CGIgs_delete(file, TARN_FORM_FILE_MAGIC);
  TarnHandle copy = FormFileList_getByIndex(list, 0);
  expectFile(&copy, "photo", "cat.png", "image/png", raw);
  FormFileList_delete(list);
  copy = FormFileList_getByIndex(&clone, 0);
  expectFile(&copy, "photo", "cat.png", "image/png", raw);
  FormFileList_delete(&clone);
}

TEST(FormFileList, CopyOfAFileWithoutBytesHasNone) {
  FileList list;
  ASSERT_EQ(TARN_OK, FormFileList_addEntry(list, File()));
  TarnHandle copy = FormFileList_getByIndex(list, 0);
  expectFile(&copy, nullptr, nullptr, nullptr, "");
  EXPECT_EQ(0U, contents(&copy));
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(FormFileWithoutMemory, InitReturnsOkAndLeavesTheFileEmpty) {
  File file("photo", "cat.png", "image/png", "meow");
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = FormFile_init(file, "n", "f", "t", "data", 4); });
  EXPECT_EQ(TARN_OK, status);
  expectFile(file, nullptr, nullptr, nullptr, "");
}

TEST(FormFileWithoutMemory, InitWithTooManyBytesReturnsOkAndStoresNone) {
  const std::string large(tarn_test::kLittleMemory, 'x');
  File file("photo", "cat.png", "image/png", "meow");
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory(
      [&] {
        status =
            FormFile_init(file, "n", "f", "t", large.data(), static_cast<uint32_t>(large.size()));
      },
      tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OK, status);
  expectFile(file, "n", "f", "t", "");
}

}  // namespace
