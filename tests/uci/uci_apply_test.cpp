// uci_apply_test.cpp - the step behind every change by path: all its actions, of which the exported
// functions use four, and what it refuses.
#include "uci/uci_apply.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <uci.h>

#include <array>
#include <string>

#include "support/device.h"
#include "support/log_capture.h"
#include "uci/store.h"

// Not every libuci looks at the section that it is given.
extern "C" int uci_reorder_section(uci_context* ctx, uci_section* s, int pos) {
    using Reorder = int (*)(uci_context*, uci_section*, int);
    static const auto next = reinterpret_cast<Reorder>(dlsym(RTLD_NEXT, "uci_reorder_section"));
    EXPECT_NE(s, nullptr);
    return s ? next(ctx, s, pos) : UCI_ERR_INVAL;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq::uci_do_section;
using tq::UciAction;
using tq_test::DeviceTest;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::read_file;
using tq_test::replaced;
using tq_test::write_file;

constexpr const char* kFile = "/etc/config/store";

constexpr const char* kOne =
    "config alpha 'one'\n"
    "\toption a '1'\n"
    "\toption b '2'\n"
    "\tlist l 'x'\n"
    "\tlist l 'y'\n"
    "\n";
constexpr const char* kBeta =
    "config beta\n"
    "\toption k 'v0'\n"
    "\n";
constexpr const char* kTwo =
    "config alpha 'two'\n"
    "\toption a '3'\n"
    "\n";

std::string store() {
    return std::string("\n") + kOne + kBeta + kTwo;
}

std::string staged() {
    return tq_test::staged("store");
}

// What the next commit makes of the file.
std::string after_commit() {
    uci_context* context = uci_alloc_context();
    uci_package* package = nullptr;
    EXPECT_EQ(uci_load(context, "store", &package), UCI_OK);
    EXPECT_EQ(uci_commit(context, &package, false), UCI_OK);
    uci_free_context(context);
    return read_file(kFile);
}

auto Failed(const std::string& text) {
    return ElementsAre(Line(LOG_ERR, "uci_do_section", text));
}

class UciDoSection : public DeviceTest {
  protected:
    UciDoSection() { write_file(kFile, store()); }

    // The action is staged, without a word, and no more than that.
    void expect_staged(UciAction action, const char* path) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(action, path), 0);
        EXPECT_EQ(read_file(kFile), store());
        EXPECT_NE(staged(), "");
        EXPECT_THAT(log_.take(), IsEmpty());
    }

    // libuci refuses it: nothing is staged, and to say so is up to the caller.
    void expect_refused(UciAction action, const char* path) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(action, path), -1);
        EXPECT_EQ(read_file(kFile), store());
        EXPECT_EQ(staged(), "");
        EXPECT_THAT(log_.take(), IsEmpty());
    }

    LogCapture log_;
};

TEST_F(UciDoSection, HasTheCodesOfTheActionField) {
    EXPECT_EQ(static_cast<int>(UciAction::kSet), 1);
    EXPECT_EQ(static_cast<int>(UciAction::kAddListItem), 2);
    EXPECT_EQ(static_cast<int>(UciAction::kDeleteListItem), 3);
    EXPECT_EQ(static_cast<int>(UciAction::kDelete), 4);
    EXPECT_EQ(static_cast<int>(UciAction::kRename), 5);
    EXPECT_EQ(static_cast<int>(UciAction::kRevert), 6);
    EXPECT_EQ(static_cast<int>(UciAction::kReorder), 7);
}

TEST_F(UciDoSection, SetsAnOption) {
    expect_staged(UciAction::kSet, "store.one.a=9");
    EXPECT_EQ(after_commit(), replaced(store(), "a '1'", "a '9'"));
}

TEST_F(UciDoSection, AddsAListItem) {
    expect_staged(UciAction::kAddListItem, "store.one.l=z");
    EXPECT_EQ(after_commit(), replaced(store(), "\tlist l 'y'\n", "\tlist l 'y'\n\tlist l 'z'\n"));
}

TEST_F(UciDoSection, DeletesAListItem) {
    expect_staged(UciAction::kDeleteListItem, "store.one.l=x");
    EXPECT_EQ(after_commit(), replaced(store(), "\tlist l 'x'\n", ""));
}

TEST_F(UciDoSection, DeletesAnOption) {
    expect_staged(UciAction::kDelete, "store.one.a");
    EXPECT_EQ(after_commit(), replaced(store(), "\toption a '1'\n", ""));
}

TEST_F(UciDoSection, DeletesTheListItemAtAPosition) {
    expect_staged(UciAction::kDelete, "store.one.l=1");
    EXPECT_EQ(after_commit(), replaced(store(), "\tlist l 'y'\n", ""));
}

TEST_F(UciDoSection, RenamesASection) {
    expect_staged(UciAction::kRename, "store.one=uno");
    EXPECT_EQ(after_commit(), replaced(store(), "'one'", "'uno'"));
}

TEST_F(UciDoSection, NamesAnAnonymousSection) {
    expect_staged(UciAction::kRename, "store.@beta[0]=named");
    EXPECT_EQ(after_commit(), replaced(store(), "config beta", "config beta 'named'"));
}

TEST_F(UciDoSection, RenamesAnOption) {
    expect_staged(UciAction::kRename, "store.one.a=alpha");
    EXPECT_EQ(after_commit(), replaced(store(), "option a", "option alpha"));
}

TEST_F(UciDoSection, RevertsWhatIsStaged) {
    expect_staged(UciAction::kSet, "store.one.a=8");
    expect_staged(UciAction::kSet, "store.one.b=9");
    EXPECT_EQ(uci_do_section(UciAction::kRevert, "store.one.a"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), replaced(store(), "b '2'", "b '9'"));
}

TEST_F(UciDoSection, RevertsAWholeFile) {
    expect_staged(UciAction::kSet, "store.one.a=8");
    expect_staged(UciAction::kDelete, "store.two");
    EXPECT_EQ(uci_do_section(UciAction::kRevert, "store"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), store());
}

TEST_F(UciDoSection, ReordersASection) {
    expect_staged(UciAction::kReorder, "store.one=1");
    EXPECT_EQ(after_commit(), std::string("\n") + kBeta + kOne + kTwo);
}

TEST_F(UciDoSection, ReordersASectionToTheFrontAndToTheEnd) {
    expect_staged(UciAction::kReorder, "store.two=0");
    EXPECT_EQ(after_commit(), std::string("\n") + kTwo + kOne + kBeta);
    EXPECT_EQ(uci_do_section(UciAction::kReorder, "store.@alpha[0]=2"), 0);
    EXPECT_EQ(after_commit(), std::string("\n") + kOne + kBeta + kTwo);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciDoSection, ReadsThePositionAsADecimalNumber) {
    const auto sections = [](int first, int last) {
        std::string text;
        for (int i = first; i <= last; i++)
            text += "config s 's" + std::to_string(i) + "'\n\n";
        return text;
    };
    write_file(kFile, sections(0, 11));
    EXPECT_EQ(uci_do_section(UciAction::kReorder, "store.s0=010"), 0);
    EXPECT_EQ(after_commit(), "\n" + sections(1, 10) + sections(0, 0) + sections(11, 11));
}

TEST_F(UciDoSection, TakesWhatIsNotThereForDeleted) {
    for (const char* path :
         {"store.one.none", "store.none", "store.none.a", "store.@beta[7]", "store.one.none=0"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(UciAction::kDelete, path), 0);
    }
    EXPECT_EQ(uci_do_section(UciAction::kDeleteListItem, "store.one.none=x"), 0);
    EXPECT_EQ(uci_do_section(UciAction::kDeleteListItem, "store.one.l=none"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), store());
}

TEST_F(UciDoSection, FailsWithoutTheValueThatTheActionTakes) {
    expect_refused(UciAction::kSet, "store.one.a");
    expect_refused(UciAction::kAddListItem, "store.one.l");
    expect_refused(UciAction::kDeleteListItem, "store.one.l");
    expect_refused(UciAction::kRename, "store.one");
    expect_refused(UciAction::kRename, "store.one.a");
    expect_refused(UciAction::kReorder, "store.one");
}

TEST_F(UciDoSection, FailsWhereLibuciFindsNothingToChange) {
    expect_refused(UciAction::kSet, "store.none.a=1");
    expect_refused(UciAction::kAddListItem, "store.none.l=x");
    expect_refused(UciAction::kRename, "store.none=x");
    expect_refused(UciAction::kRename, "store.one.none=x");
    expect_refused(UciAction::kReorder, "store.none=1");
    expect_refused(UciAction::kReorder, "store.@beta[7]=1");
    expect_refused(UciAction::kReorder, "store=1");
    expect_refused(UciAction::kDelete, "store");
}

TEST_F(UciDoSection, FailsOnAnUnknownCode) {
    for (const int code : {-1, 0, 8, 100}) {
        expect_refused(static_cast<UciAction>(code), "store.one.a");
        expect_refused(static_cast<UciAction>(code), "store.one.a=1");
    }
}

TEST_F(UciDoSection, RefusesAPositionThatIsNoNumber) {
    for (const char* path : {"store.one.l=x", "store.one.l=", "store.one.l=-", "store.one=x"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(UciAction::kDelete, path), -1);
        EXPECT_THAT(log_.take(), Failed("invalid\n"));
    }
    EXPECT_EQ(staged(), "");
}

TEST_F(UciDoSection, RefusesToRevertToAValue) {
    expect_staged(UciAction::kSet, "store.one.a=8");
    const std::string before = staged();
    for (const char* path : {"store.one.a=1", "store.one=1", "store.one.a=", "store.one.a=x"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(UciAction::kRevert, path), -1);
        EXPECT_THAT(log_.take(), Failed("invalid\n"));
    }
    EXPECT_EQ(staged(), before);
}

TEST_F(UciDoSection, FailsOnAPathThatCannotBeLookedUp) {
    for (const std::string path : {"absent.one.a=1", "", ".", "store.one.a.b", "store.%s%n=1"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(uci_do_section(UciAction::kSet, path.c_str()), -1);
        EXPECT_THAT(log_.take(), Failed("uci_lookup_ptr fail, " + path + "\n"));
    }
    EXPECT_EQ(staged(), "");
}

TEST_F(UciDoSection, FailsWhereTheChangeCannotBeStaged) {
    write_file("/tmp/.uci", "no directory");
    EXPECT_EQ(uci_do_section(UciAction::kSet, "store.one.a=9"), -1);
    EXPECT_EQ(read_file(kFile), store());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciDoSection, RejectsAMissingPath) {
    EXPECT_EQ(uci_do_section(UciAction::kSet, nullptr), -1);
    EXPECT_THAT(log_.take(), Failed("invalid parameters\n"));
}

TEST_F(UciDoSection, LeavesThePathAsItIs) {
    const std::string path = "store.one.a=9";
    EXPECT_EQ(uci_do_section(UciAction::kSet, path.c_str()), 0);
    EXPECT_EQ(path, "store.one.a=9");
}

}  // namespace
