#include <gtest/gtest.h>

#include <string>

#include "Allocations.h"
#include "httpPool/NamedList.h"

namespace {

struct Named {
  explicit Named(std::string text) : name(std::move(text)) {}
  const std::string& GetNameText() const { return name; }
  std::string name;
};

TEST(NamedListTest, FindsTheFirstOfSeveralWithTheSameName) {
  Named a1("a");
  Named b("b");
  Named a2("a");
  NamedList<Named> list;
  list.Add(&a1);
  list.Add(&b);
  list.Add(&a2);
  EXPECT_EQ(list.Find("a"), &a1);
  list.Remove(&a1);
  EXPECT_EQ(list.Find("a"), &a2);
  list.Remove(&a2);
  EXPECT_EQ(list.Find("a"), nullptr);
  EXPECT_EQ(list.Find("b"), &b);
  EXPECT_EQ(list.size(), 1U);
}

TEST(NamedListTest, RemovingALaterOneKeepsTheFirst) {
  Named first("a");
  Named second("a");
  NamedList<Named> list;
  list.Add(&first);
  list.Add(&second);
  list.Remove(&second);
  EXPECT_EQ(list.Find("a"), &first);
}

TEST(NamedListTest, KeepsTheOrder) {
  Named a("a");
  Named b("b");
  Named c("c");
  NamedList<Named> list;
  list.Add(&a);
  list.Add(&b);
  list.Add(&c);
  list.Remove(&b);
  EXPECT_EQ(list[0], &a);
  EXPECT_EQ(list[1], &c);
  EXPECT_EQ(list.TakeAll(), (std::vector<Named*>{&a, &c}));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.Find("a"), nullptr);
}

TEST(NamedListTest, UnknownAndNullNamesFindNothing) {
  Named a("a");
  NamedList<Named> list;
  EXPECT_EQ(list.Find("a"), nullptr);
  list.Add(&a);
  EXPECT_EQ(list.Find("A"), nullptr);
  EXPECT_EQ(list.Find(""), nullptr);
  EXPECT_EQ(list.Find(nullptr), nullptr);
}

TEST(NamedListTest, RemovingWhatIsNotListedChangesNothing) {
  Named a("a");
  Named other("a");
  NamedList<Named> list;
  list.Add(&a);
  list.Remove(&other);
  EXPECT_EQ(list.Find("a"), &a);
}

TEST(NamedListTest, FollowsARename) {
  Named a("a");
  Named b("b");
  NamedList<Named> list;
  list.Add(&a);
  list.Add(&b);
  a.name = "b";
  NamedListBase::NoteRename();
  EXPECT_EQ(list.Find("a"), nullptr);
  EXPECT_EQ(list.Find("b"), &a);
}

TEST(NamedListTest, TakesOutARenamedOneBeforeAnybodyHasLooked) {
  Named a("a");
  Named b("b");
  NamedList<Named> list;
  list.Add(&a);
  list.Add(&b);
  a.name = "b";
  NamedListBase::NoteRename();
  list.Remove(&a);
  EXPECT_EQ(list.Find("a"), nullptr);
  EXPECT_EQ(list.Find("b"), &b);
}

TEST(NamedListTest, LookingUpDoesNotAllocate) {
  Named a(std::string(10'000, 'a'));
  NamedList<Named> list;
  list.Add(&a);
  const std::string name(10'000, 'a');
  const long before = allocationsOfThisThread();
  EXPECT_EQ(list.Find(name.c_str()), &a);
  EXPECT_EQ(allocationsOfThisThread(), before);
}

}  // namespace
