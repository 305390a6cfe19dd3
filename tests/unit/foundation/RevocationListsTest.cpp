#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/base/Release.h"
#include "foundation/security/RevocationLists.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

using Input = std::unique_ptr<BIO, Release<BIO_free_all>>;

/// The certificate of an authority, for its name.
class Issuer {
 public:
  explicit Issuer(const test::CertificateAuthority& authority)
      : certificate_(PEM_read_bio_X509(Input(BIO_new_file(authority.rootFile().c_str(), "r")).get(), nullptr,
                                       nullptr, nullptr)) {}
  const X509_NAME* name() const { return X509_get_subject_name(certificate_.get()); }

 private:
  std::unique_ptr<X509, Release<X509_free>> certificate_;
};

class RevocationListsTest : public testing::Test {
 protected:
  /// The path of a list of the authority.
  std::string file(int number) const { return folder_.file(prefix_ + std::to_string(number)); }
  std::string list() { return test::readFile(authority_.revocationsFile()); }
  /// Whether lists have been put into the store.
  bool readsSome() {
    const std::uint64_t before = lists_.version();
    const std::optional<std::uint64_t> version = lists_.read(issuer_.name());
    EXPECT_TRUE(version);
    EXPECT_EQ(version > before, lists_.version() != before);
    return version > before;
  }
  bool isReadWithoutDescriptors() {
    const test::NoDescriptors none;
    return lists_.read(issuer_.name()).has_value();
  }
  int listsInTheStore() const {
    const STACK_OF(X509_OBJECT)* objects = X509_STORE_get0_objects(store_.get());
    int count = 0;
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
      count += X509_OBJECT_get_type(sk_X509_OBJECT_value(objects, i)) == X509_LU_CRL ? 1 : 0;
    }
    return count;
  }

  test::CertificateAuthority authority_;
  Issuer issuer_{authority_};
  const std::string prefix_ = authority_.revocationsPrefix();
  test::TemporaryFolder folder_;
  std::unique_ptr<X509_STORE, Release<X509_STORE_free>> store_{X509_STORE_new()};
  RevocationLists lists_{store_.get(), folder_.path()};
};

TEST_F(RevocationListsTest, ReadsEachListOnce) {
  test::writeFile(file(0), list());
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 1);
  EXPECT_FALSE(readsSome());
  EXPECT_EQ(listsInTheStore(), 1);
}

TEST_F(RevocationListsTest, ReadsOfAFileAllThatAreInIt) {
  test::writeFile(file(0), "of the root\n" + list() + test::readFile(authority_.rootFile()) + list());
  test::writeFile(file(1), test::readFile(authority_.revocationsInDerFile()));
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 3);
  EXPECT_FALSE(readsSome());
}

TEST_F(RevocationListsTest, ReadsListsThatComeLater) {
  EXPECT_FALSE(readsSome());
  test::writeFile(file(0), list());
  EXPECT_TRUE(readsSome());
  test::writeFile(file(1), list());
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, LooksAsFarAsTheNumbersGo) {
  test::writeFile(file(1), list());
  EXPECT_FALSE(readsSome());
  for (int number = 0; number < 12; ++number) {
    test::writeFile(file(number), list());
  }
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 12);
}

TEST_F(RevocationListsTest, PassesOverWhatIsNoList) {
  std::filesystem::create_symlink("nowhere", file(0));
  std::filesystem::create_directory(file(1));
  ASSERT_EQ(mkfifo(file(2).c_str(), 0600), 0);
  test::writeFile(file(3), "");
  test::writeFile(file(4), "garbage");
  const std::string whole = list();
  test::writeFile(file(5), whole.substr(0, whole.size() / 2));
  // Nobody is asked for its password.
  std::string encrypted = whole;
  encrypted.insert(encrypted.find('\n') + 1,
                   "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n");
  test::writeFile(file(6), encrypted);
  EXPECT_FALSE(readsSome());
  EXPECT_EQ(listsInTheStore(), 0);
  test::writeFile(file(7), list());
  EXPECT_TRUE(readsSome());
  // The file is as it should be now.
  test::writeFile(file(4), list());
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, LooksIntoEveryFolder) {
  const test::TemporaryFolder other;
  test::writeFile(file(0), list());
  test::writeFile(other.file(prefix_ + "0"), list());
  RevocationLists lists(store_.get(),
                        "::" + folder_.path() + ":" + folder_.file("none") + "::" + other.path() + ":");
  EXPECT_EQ(lists.read(issuer_.name()), 2U);
  EXPECT_EQ(listsInTheStore(), 2);
  EXPECT_EQ(RevocationLists(store_.get(), "").read(issuer_.name()), 0U);
}

TEST_F(RevocationListsTest, LooksForThatIssuersOnly) {
  test::writeFile(file(0), list());
  const std::unique_ptr<X509_NAME, Release<X509_NAME_free>> other(X509_NAME_new());
  X509_NAME_add_entry_by_txt(other.get(), "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("other"),
                             -1, -1, 0);
  EXPECT_EQ(lists_.read(other.get()), 0U);
  EXPECT_EQ(listsInTheStore(), 0);
}

TEST_F(RevocationListsTest, LooksAgainWhenThereWasNoDescriptor) {
  test::writeFile(file(0), list());
  test::writeFile(file(1), list());
  EXPECT_FALSE(isReadWithoutDescriptors());
  EXPECT_FALSE(isReadWithoutDescriptors());
  EXPECT_EQ(lists_.version(), 0U);
  EXPECT_EQ(listsInTheStore(), 0);
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, NeedsNoDescriptorForWhatIsKnown) {
  test::writeFile(file(0), list());
  struct stat status {};
  // As long as the file's date could hide a change it is read again.
  while (stat(file(0).c_str(), &status) == 0 && !FileState(status).isSettled()) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(readsSome());
  EXPECT_TRUE(isReadWithoutDescriptors());
}

TEST_F(RevocationListsTest, ReadsAgainWhatIsReplaced) {
  test::writeFile(file(0), list());
  EXPECT_TRUE(readsSome());
  test::writeFile(folder_.file("new"), list());
  std::filesystem::rename(folder_.file("new"), file(0));
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, ReadsTheRestOfAFileThatWasHalfWritten) {
  const std::string one = list();
  const std::string other = list();
  test::writeFile(file(0), one + other.substr(0, other.size() / 2));
  EXPECT_TRUE(readsSome());
  EXPECT_FALSE(readsSome());
  EXPECT_EQ(listsInTheStore(), 1);
  test::writeFile(file(0), one + other);
  EXPECT_TRUE(readsSome());
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, AreReadByManyThreadsAtOnce) {
  constexpr int kThreads = 8;
  constexpr int kLists = 20;
  std::atomic<int> wrong = 0;
  for (int number = 0; number < kLists; ++number) {
    test::writeFile(file(number), list());
  }
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      // Whoever comes later finds them in the store.
      wrong += lists_.read(issuer_.name()) == kLists ? 0 : 1;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(listsInTheStore(), kLists);
}

}  // namespace
}  // namespace foundation
