#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "foundation/base/Release.h"
#include "foundation/security/RevocationLists.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {

void PrintTo(RevocationLists::Read read, std::ostream* out) {
  *out << static_cast<int>(read);
}

namespace {

using enum RevocationLists::Read;
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
  static std::string inDer(const std::string& list) {
    const Input input(BIO_new_mem_buf(list.data(), static_cast<int>(list.size())));
    const std::unique_ptr<X509_CRL, Release<X509_CRL_free>> parsed(
        PEM_read_bio_X509_CRL(input.get(), nullptr, nullptr, nullptr));
    std::string bytes(static_cast<std::size_t>(i2d_X509_CRL(parsed.get(), nullptr)), '\0');
    auto* next = reinterpret_cast<unsigned char*>(bytes.data());
    i2d_X509_CRL(parsed.get(), &next);
    return bytes;
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
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 1);
  EXPECT_EQ(lists_.read(issuer_.name()), NothingNew);
  EXPECT_EQ(listsInTheStore(), 1);
}

TEST_F(RevocationListsTest, ReadsOfAFileAllThatAreInIt) {
  test::writeFile(file(0), "of the root\n" + list() + test::readFile(authority_.rootFile()) + list());
  test::writeFile(file(1), inDer(list()));
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 3);
  EXPECT_EQ(lists_.read(issuer_.name()), NothingNew);
}

TEST_F(RevocationListsTest, ReadsListsThatComeLater) {
  EXPECT_EQ(lists_.read(issuer_.name()), NothingNew);
  test::writeFile(file(0), list());
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  test::writeFile(file(1), list());
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, LooksAsFarAsTheNumbersGo) {
  test::writeFile(file(1), list());
  EXPECT_EQ(lists_.read(issuer_.name()), NothingNew);
  for (int number = 0; number < 12; ++number) {
    test::writeFile(file(number), list());
  }
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
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
  EXPECT_EQ(lists_.read(issuer_.name()), NothingNew);
  EXPECT_EQ(listsInTheStore(), 0);
  test::writeFile(file(7), list());
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  // The file is as it should be now.
  test::writeFile(file(4), list());
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, LooksIntoEveryFolder) {
  const test::TemporaryFolder other;
  test::writeFile(file(0), list());
  test::writeFile(other.file(prefix_ + "0"), list());
  RevocationLists lists(store_.get(),
                        "::" + folder_.path() + ":" + folder_.file("none") + "::" + other.path() + ":");
  EXPECT_EQ(lists.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 2);
  EXPECT_EQ(RevocationLists(store_.get(), "").read(issuer_.name()), NothingNew);
}

TEST_F(RevocationListsTest, LooksForThatIssuersOnly) {
  test::writeFile(file(0), list());
  const std::unique_ptr<X509_NAME, Release<X509_NAME_free>> other(X509_NAME_new());
  X509_NAME_add_entry_by_txt(other.get(), "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("other"),
                             -1, -1, 0);
  EXPECT_EQ(lists_.read(other.get()), NothingNew);
  EXPECT_EQ(listsInTheStore(), 0);
}

TEST_F(RevocationListsTest, LooksAgainWhenThereWasNoDescriptor) {
  test::writeFile(file(0), list());
  test::writeFile(file(1), list());
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const RevocationLists::Read read = lists_.read(issuer_.name());
  const RevocationLists::Read again = lists_.read(issuer_.name());
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(read, NotNow);
  EXPECT_EQ(again, NotNow);
  EXPECT_EQ(listsInTheStore(), 0);
  EXPECT_EQ(lists_.read(issuer_.name()), SomeNew);
  EXPECT_EQ(listsInTheStore(), 2);
}

TEST_F(RevocationListsTest, AreReadByManyThreadsAtOnce) {
  constexpr int kThreads = 8;
  constexpr int kLists = 20;
  std::atomic<int> someNew = 0;
  std::atomic<int> wrong = 0;
  for (int number = 0; number < kLists; ++number) {
    test::writeFile(file(number), list());
  }
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      someNew += lists_.read(issuer_.name()) == SomeNew ? 1 : 0;
      // Whoever comes later finds them in the store.
      wrong += listsInTheStore() == kLists ? 0 : 1;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(someNew, 1);
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace foundation
