// Files that are saved whole or not at all.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>

#include "support/pieces.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;
namespace fs = std::filesystem;

class Saving : public testing::Test {
 protected:
  Saving() {
    char path[] = "/tmp/tarn-form-test-XXXXXX";
    folder_ = mkdtemp(path);
  }
  ~Saving() override { fs::remove_all(folder_); }

  std::set<std::string> names() const {
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder_)) names.insert(entry.path().filename());
    return names;
  }
  std::string content(const std::string &name) const {
    std::ifstream file(folder_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  int save(const std::string &name, const std::string &value, bool whole = true) {
    const std::string body = "--b\r\nContent-Disposition: form-data; name=a; filename=f\r\n\r\n" +
                             value + (whole ? "\r\n--b--" : "\r\n--");
    const Pieces pieces(body, {50000});
    TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
    const int result = TarnFormField_save(TarnForm_next(form), folder_.c_str(), name.c_str());
    TarnForm_close(form);
    return result;
  }

  fs::path folder_;
};

using SavingLarge = Saving;

TEST_F(Saving, StoresEveryByte) {
  std::string value("\x89PNG\r\n\x1a\n\0", 9);
  for (int i = 0; i < 300000; ++i) value += static_cast<char>(i * 7 % 256);
  EXPECT_EQ(save("photo.png", value), 0);
  EXPECT_EQ(save("empty", ""), 0);
  EXPECT_EQ(names(), (std::set<std::string>{"empty", "photo.png"}));
  EXPECT_TRUE(content("photo.png") == value);
  EXPECT_EQ(content("empty"), "");
  struct stat about;
  ASSERT_EQ(stat((folder_ / "photo.png").c_str(), &about), 0);
  EXPECT_EQ(about.st_mode & 07777, 0600U);
}

// A file is written in large blocks, which rarely end where pieces of the body do.
TEST_F(SavingLarge, StoresEveryByteHoweverItArrives) {
  const std::string head = "--b\r\nContent-Disposition: form-data; name=a; filename=f\r\n\r\n";
  int number = 0;
  for (const size_t size : {131071U, 131072U, 131073U, 139264U, 262144U, 300001U}) {
    std::string value;
    for (size_t i = 0; i < size; ++i) value += static_cast<char>(i * i % 251);
    const std::string body = head + value + "\r\n--b--";
    for (const auto &pieces :
         {std::vector<size_t>{1U << 20}, {65536}, {4096}, {131072, 1}, {997}}) {
      for (const bool whole_body : {false, true}) {
        const Pieces arriving(body, pieces);
        TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
        TarnFormField *field = whole_body ? TarnForm_body(form) : TarnForm_next(form);
        char first[2] = "";
        EXPECT_EQ(TarnFormField_read(field, first, 2), 2);
        const std::string name = std::to_string(++number);
        const int file = open((folder_ / name).c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(TarnFormField_write(field, file), 0);
        close(file);
        EXPECT_EQ(TarnForm_next(form), nullptr);
        EXPECT_EQ(TarnForm_isWhole(form), 1);
        TarnForm_close(form);
        EXPECT_TRUE(std::string(first, 2) + content(name) == (whole_body ? body : value)) << size;
      }
    }
  }
}

TEST_F(Saving, LeavesNothingOfAFileThatIsCutShort) {
  EXPECT_EQ(save("cut", std::string(200000, 'x'), false), -1);
  EXPECT_EQ(names(), std::set<std::string>{});
}

TEST_F(Saving, OverwritesNothingAndFollowsNoLink) {
  std::ofstream(folder_ / "taken") << "old";
  fs::create_symlink("elsewhere", folder_ / "link");
  EXPECT_EQ(save("taken", "new"), EEXIST);
  EXPECT_EQ(save("link", "new"), EEXIST);
  EXPECT_EQ(content("taken"), "old");
  EXPECT_EQ(names(), (std::set<std::string>{"link", "taken"}));
}

TEST_F(Saving, MayBeTriedAgainUnderAnotherName) {
  std::ofstream(folder_ / "taken") << "old";
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\nnew\r\n--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "taken"), EEXIST);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "a/b"), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "free"), 0);
  EXPECT_EQ(content("free"), "new");
  TarnForm_close(form);
}

TEST_F(Saving, KeepsAValueWhoseNameIsTakenMeanwhile) {
  const std::string value(100000, 'v');
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\n" + value +
                           "\r\n--b\r\nContent-Disposition: form-data; name=b\r\n\r\nnext\r\n--b--";
  fs::create_directory(folder_ / "other");
  Pieces pieces(body, {50000});
  pieces.meanwhile = [this] { std::ofstream(folder_ / "photo") << "old"; };
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "photo"), EEXIST);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "photo"), EEXIST);
  EXPECT_EQ(TarnFormField_save(field, (folder_ / "other").c_str(), "photo"), EXDEV);
  EXPECT_EQ(TarnFormField_save(field, (folder_ / "missing").c_str(), "photo"), ENOENT);
  EXPECT_EQ(TarnFormField_save(field, "/", "photo"), EXDEV);
  EXPECT_EQ(TarnFormField_save(field, nullptr, "photo"), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), nullptr), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "a/b"), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "photo-2"), 0);
  EXPECT_EQ(content("photo"), "old");
  EXPECT_TRUE(content("photo-2") == value);
  field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "next"), 0);
  EXPECT_EQ(content("next"), "next");
  TarnForm_close(form);
  EXPECT_EQ(names(), (std::set<std::string>{"next", "other", "photo", "photo-2"}));
}

TEST_F(Saving, ReadsAKeptValueAsOftenAsItIsSaved) {
  const std::string body =
      "--b\r\nContent-Disposition: form-data; name=a; filename=f\r\n\r\nvalue\r\n--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_MEMORY_SIZE, 2);
  ASSERT_EQ(TarnForm_load(form), 1);
  TarnFormField *field = TarnForm_get(form, "a", 0);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "one"), 0);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "one"), EEXIST);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "two"), 0);
  EXPECT_EQ(content("one"), "value");
  EXPECT_EQ(content("two"), "value");
  TarnForm_close(form);
}

TEST_F(Saving, StoresAValueThatHasBeenReadAsATextOrAView) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\nvalue\r\n--b--";
  for (const bool as_text : {true, false}) {
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    TarnFormField *field = TarnForm_next(form);
    EXPECT_NE(as_text ? TarnFormField_text(field) : TarnFormField_view(field), nullptr);
    const char *name = as_text ? "text" : "view";
    EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), name), 0);
    EXPECT_EQ(content(name), "value");
    EXPECT_EQ(TarnFormField_size(field), 5U);
    EXPECT_STREQ(TarnFormField_text(field), "value");
    TarnForm_close(form);
  }
}

TEST_F(Saving, StoresATextThatWasReadAsOftenAsAsked) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\nvalue\r\n--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_STREQ(TarnFormField_text(field), "value");
  char byte = '\0';
  EXPECT_EQ(TarnFormField_read(field, &byte, 1), 1);
  EXPECT_EQ(TarnFormField_size(field), 5U);
  EXPECT_EQ(TarnFormField_write(field, -1), EBADF);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "rest"), 0);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "rest"), EEXIST);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "all"), 0);
  EXPECT_EQ(content("rest"), "alue");
  EXPECT_EQ(content("all"), "value");
  TarnForm_close(form);
}

TEST_F(Saving, StoresNoSecondFileOfAValueThatIsGone) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\nvalue\r\n--b--";
  const auto save_once = [this](TarnFormField *field) {
    EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "saved"), 0);
  };
  const auto skip = [](TarnFormField *field) { EXPECT_EQ(TarnFormField_skip(field), 1); };
  const auto read_all = [](TarnFormField *field) {
    char bytes[5];
    EXPECT_EQ(TarnFormField_read(field, bytes, sizeof bytes), 5);
  };
  for (const std::function<void(TarnFormField *)> &take :
       {std::function(save_once), {skip}, {read_all}}) {
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    TarnFormField *field = TarnForm_next(form);
    take(field);
    EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "again"), ENODATA);
    EXPECT_EQ(TarnFormField_write(field, 1), ENODATA);
    TarnForm_close(form);
  }
  EXPECT_EQ(names(), std::set<std::string>{"saved"});
}

TEST_F(Saving, StoresAnEmptyValueOnce) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\n\r\n--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "a/b"), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "empty"), 0);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "again"), ENODATA);
  TarnForm_close(form);
  EXPECT_EQ(names(), std::set<std::string>{"empty"});
}

TEST_F(Saving, StoresNoRestOfAValueAfterAFailedWrite) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=a\r\n\r\n" +
                           std::string(200000, 'v') + "\r\n--b--";
  const Pieces pieces(body, {50000});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_write(field, -1), EBADF);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "rest"), ENODATA);
  const void *block = nullptr;
  EXPECT_EQ(TarnFormField_block(field, &block), -1);
  EXPECT_EQ(TarnFormField_text(field), nullptr);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
  EXPECT_EQ(names(), std::set<std::string>{});
}

TEST_F(Saving, GivesUpAValueWhoseNameIsTakenMeanwhile) {
  const std::string body =
      part("name=a", std::string(100000, 'v')) + part("name=b", "next") + "--b--";
  Pieces pieces(body, {50000});
  pieces.meanwhile = [this] { std::ofstream(folder_ / "photo") << "old"; };
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  EXPECT_EQ(TarnFormField_save(TarnForm_next(form), folder_.c_str(), "photo"), EEXIST);
  EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "next");
  EXPECT_EQ(names(), std::set<std::string>{"photo"});
  TarnForm_close(form);
}

TEST_F(Saving, StoresTheRestOfAValue) {
  const std::string body = part("name=a", std::string(100000, 'v')) + "--b--";
  const Pieces pieces(body, {30000});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnFormField *field = TarnForm_next(form);
  const void *block = nullptr;
  const int64_t size = TarnFormField_block(field, &block);
  ASSERT_GT(size, 0);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "rest"), 0);
  EXPECT_EQ(content("rest").size(), 100000U - static_cast<size_t>(size));
  TarnForm_close(form);
}

TEST_F(SavingLarge, StoresSeveralMegabytes) {
  const std::string value(9 * 1024 * 1024, 'v');
  EXPECT_EQ(save("large", value), 0);
  EXPECT_TRUE(content("large") == value);
}

TEST_F(Saving, RefusesPathsThatAreMissingOrTooLong) {
  const std::string body = part("name=a", "value") + "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, nullptr, "x"), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), nullptr), EINVAL);
  EXPECT_EQ(TarnFormField_save(field, std::string(5000, 'x').c_str(), "x"), ENAMETOOLONG);
  EXPECT_EQ(TarnFormField_save(field, folder_.c_str(), "x"), 0);
  TarnForm_close(form);
}

TEST_F(Saving, RefusesNamesThatLeadElsewhere) {
  for (const char *name : {"", ".", "..", "/", "a/b", "../a", "/tmp/a"}) {
    EXPECT_EQ(save(name, "x"), EINVAL) << name;
  }
  EXPECT_EQ(save(std::string(256, 'x'), "x"), EINVAL);
  EXPECT_EQ(save(std::string(255, 'x'), "x"), 0);
}

TEST_F(Saving, RefusesFoldersThatAreLinks) {
  const fs::path folder = folder_;
  fs::create_directory(folder / "real");
  fs::create_symlink("real", folder / "link");
  folder_ = folder / "link";
  EXPECT_NE(save("a", "x"), 0);
  folder_ = folder / "link/.";
  EXPECT_NE(save("a", "bytes"), 0);
  folder_ = folder / "link/";
  EXPECT_NE(save("a", "x"), 0);
  folder_ = folder / "missing";
  EXPECT_EQ(save("a", "x"), ENOENT);
  folder_ = folder / "real/";
  EXPECT_EQ(save("a", "x"), 0);
  folder_ = folder / "missing.";
  EXPECT_EQ(save("a", "x"), ENOENT);
  folder_ = folder;
  EXPECT_EQ(content("real/a"), "x");
}

TEST_F(Saving, ReportsAFullDiskAndLeavesNothing) {
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small = {1000, before.rlim_max};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const int result = save("large", std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(result, EFBIG);
  EXPECT_EQ(names(), std::set<std::string>{});
}

TEST_F(Saving, GoesOnAfterAFailedWrite) {
  const std::string body =
      "--b\r\nContent-Disposition: form-data; name=a\r\n\r\nlost\r\n"
      "--b\r\nContent-Disposition: form-data; name=b\r\n\r\nkept\r\n--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  EXPECT_EQ(TarnFormField_write(TarnForm_next(form), -1), EBADF);
  EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "kept");
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
}

TEST_F(Saving, WritesToADescriptor) {
  const std::string path = folder_ / "file";
  const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  const std::string value(300000, 'w');
  TarnForm *form = TarnForm_openMemory("text/plain", value.data(), value.size());
  EXPECT_EQ(TarnFormField_write(TarnForm_body(form), file), 0);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
  close(file);
  EXPECT_TRUE(content("file") == value);
}

}  // namespace
