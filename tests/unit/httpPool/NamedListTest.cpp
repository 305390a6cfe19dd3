#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

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

/// A list, and beside it the plain vector that it is to behave like.
class ListAndModel {
 public:
  void add(const std::string& name) {
    all_.push_back(std::make_unique<Named>(name));
    list.Add(all_.back().get());
    model.push_back(all_.back().get());
  }
  void remove(std::size_t position) {
    list.Remove(model[position]);
    model.erase(model.begin() + static_cast<std::ptrdiff_t>(position));
  }
  void rename(std::size_t position, const std::string& name) {
    model[position]->name = name;
    NamedListBase::NoteRename();
  }
  void expectSameFind(const std::string& name) {
    const auto found =
        std::find_if(model.begin(), model.end(), [&](const Named* one) { return one->name == name; });
    EXPECT_EQ(list.Find(name.c_str()), found == model.end() ? nullptr : *found) << name;
  }
  void expectSameOrder() {
    ASSERT_EQ(list.size(), model.size());
    EXPECT_EQ(list.empty(), model.empty());
    EXPECT_EQ((std::vector<Named*>{list.begin(), list.end()}), model);
  }

  NamedList<Named> list;
  std::vector<Named*> model;

 private:
  std::vector<std::unique_ptr<Named>> all_;
};

TEST(NamedListTest, BehavesLikeAPlainVectorWhateverHappens) {
  std::minstd_rand random(4711);
  const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(random()) % bound; };
  // Few names in the first round, so that many share theirs.
  for (const std::size_t names : {20, 5'000}) {
    ListAndModel both;
    for (int step = 0; step < 20'000; ++step) {
      // First it grows, then it shrinks.
      const std::size_t addsOfTen = step < 8'000 ? 6 : 2;
      const std::size_t what = below(10);
      if (both.model.empty() || what < addsOfTen) {
        both.add("name" + std::to_string(below(names)));
      } else if (what < 9) {
        both.remove(below(both.model.size()));
      } else if (step % 50 == 0) {
        both.rename(below(both.model.size()), "name" + std::to_string(below(names)));
      }
      both.expectSameFind("name" + std::to_string(below(names)));
      if (!both.model.empty()) {
        const std::size_t position = below(both.model.size());
        ASSERT_EQ(both.list[position], both.model[position]) << "step " << step;
      }
      if (step % 500 == 0) {
        ASSERT_NO_FATAL_FAILURE(both.expectSameOrder());
      }
    }
    EXPECT_EQ(both.list.TakeAll(), both.model);
  }
}

TEST(NamedListTest, PositionsMoveUpBehindWhatIsTakenOutDuringAWalk) {
  std::minstd_rand random(4711);
  ListAndModel both;
  for (int i = 0; i < 1'000; ++i) {
    both.add("name" + std::to_string(i));
  }
  std::size_t steps = 0;
  for (std::size_t position = 0; position < both.model.size(); ++position) {
    ASSERT_EQ(both.list.size(), both.model.size());
    ASSERT_EQ(both.list[position], both.model[position]) << "position " << position;
    both.remove(static_cast<std::size_t>(random()) % both.model.size());
    if (position % 4 == 0) {
      both.add("late" + std::to_string(position));
    }
    ++steps;
  }
  EXPECT_GT(steps, 400U);
  EXPECT_LT(both.model.size(), 700U);
}

TEST(NamedListTest, TakingOutDoesNotAllocateWhileFewAreThere) {
  ListAndModel both;
  for (int i = 0; i < 10; ++i) {
    both.add("a name of more than a few characters, number " + std::to_string(i));
  }
  const long before = allocationsOfThisThread();
  for (Named* one : both.model) {
    both.list.Remove(one);
  }
  EXPECT_EQ(allocationsOfThisThread(), before);
}

}  // namespace
