// Every state file the agent owns, through a write that fails at each of its
// steps and through a damaged file: what was accepted is never lost.
#include <gtest/gtest.h>

#include <functional>

#include "agent/deferrals/DeferralManager.h"
#include "agent/items/UIController.h"
#include "agent/run/PlistManager.h"
#include "core/deferrals/DialogResponse.h"
#include "core/files/DamagedFileKeeper.h"
#include "core/notifications/NotificationNames.h"
#include "core/values/PropertyList.h"
#include "tests/support/AgentFakes.h"

namespace velmo::agent {
namespace {

namespace Name = core::NotificationName;
using Step = platform::fake::FakeFileManager::WriteStep;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

enum class StateFile { deferrals, updateState, agentState };

core::UpdateItem item(int number) {
  const std::string id = "app" + std::to_string(number);
  return core::UpdateItem(id, id, "2.0", "1.0", "/Applications/" + id + ".app", false, false);
}

class StateFileFaultTest : public ::testing::Test, protected testing::AgentFakes {
 protected:
  std::filesystem::path path(StateFile file) const {
    switch (file) {
      case StateFile::deferrals:
        return paths_.deferralsFile();
      case StateFile::updateState:
        return paths_.updateStateFile();
      case StateFile::agentState:
        return paths_.agentStateFile();
    }
    return {};
  }
  // The owner of `file` accepts its change number `n`.
  void change(StateFile file, int n) {
    switch (file) {
      case StateFile::deferrals:
        distributed_.deliver(
            0, Name::dialogResponse,
            core::DialogResponse::fromItem(item(n), {core::ResponseType::Kind::deferral, ""})
                .jsonText());
        break;
      case StateFile::updateState:
        distributed_.deliver(0, Name::addItemsToUIControllerQueue,
                             core::UpdateItem::jsonText(std::vector{item(n)}));
        break;
      case StateFile::agentState:
        runState_.setValue(core::PlistValue(std::int64_t{n}), run::PlistKey::updateTaskRunCount);
        break;
    }
    clock_.runUntilIdle();
  }
  // How many of the changes the file on "disk" holds; -1 when it can't be read.
  int onDisk(StateFile file) {
    const auto text = files_.readFile(path(file));
    if (!text.ok()) return 0;
    switch (file) {
      case StateFile::deferrals: {
        const auto map = core::decodeDeferralMap(text.value());
        return map ? static_cast<int>(map->size()) : -1;
      }
      case StateFile::updateState: {
        const auto items = core::UpdateItem::arrayFromJSONText(text.value());
        return items ? static_cast<int>(items->size()) : -1;
      }
      case StateFile::agentState: {
        const auto count =
            run::PlistManager(files_, path(file)).value(run::PlistKey::updateTaskRunCount);
        return count && count->getIf<std::int64_t>()
                   ? static_cast<int>(*count->getIf<std::int64_t>())
                   : -1;
      }
    }
    return -1;
  }

  deferrals::DeferralManager deferrals_{{context_.get_executor(), context_.get_executor(), clock_,
                                         files_, paths_, distributed_, notifications_, postLog_}};
  items::VelmoAgentQueue queue_{{context_.get_executor(), clock_, defaults_, runner_}};
  std::shared_ptr<items::UIController> controller_ =
      items::UIController::make({context_.get_executor(), context_.get_executor(), clock_, files_,
                                 paths_, distributed_, notifications_, queue_, postLog_},
                                nullptr);
  run::PlistManager runState_{files_, paths_.agentStateFile(),
                              run::PlistManager::Retries{clock_, context_.get_executor()}};
};

struct FaultCase {
  StateFile file;
  Step step;
};
void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << static_cast<int>(c.file) << "/" << static_cast<int>(c.step);
}

class WriteFault : public StateFileFaultTest, public ::testing::WithParamInterface<FaultCase> {};

// A day-long full disk: the old file stays whole (a failed flush of the folder
// comes after the rename and leaves the new one), one error line is logged
// however many attempts fail, and the first write after space comes back
// holds every change accepted meanwhile.
TEST_P(WriteFault, KeepsTheOldFileAndWritesEverythingOnceItCan) {
  const auto [file, step] = GetParam();
  change(file, 1);
  ASSERT_EQ(onDisk(file), 1);
  const auto errorsBefore = loggedCount("Failed to");

  files_.failWrites(step);
  change(file, 2);
  clock_.advance(seconds(1));
  change(file, 3);
  clock_.advance(hours(24));
  EXPECT_EQ(onDisk(file), step == Step::flushFolder ? 3 : 1);
  EXPECT_FALSE(files_.fileExists(path(file).string() + ".tmp"));
  EXPECT_EQ(loggedCount("Failed to") - errorsBefore, 1u);

  files_.stopFailingWrites();
  clock_.advance(minutes(5));
  EXPECT_EQ(onDisk(file), 3);
  EXPECT_EQ(loggedCount("failed attempts."), 1u);
  const auto writes = files_.durableWrites();
  clock_.advance(hours(1));
  EXPECT_EQ(files_.durableWrites(), writes) << "retries stop after a success";
}

std::vector<FaultCase> allFaults() {
  std::vector<FaultCase> cases;
  for (auto file : {StateFile::deferrals, StateFile::updateState, StateFile::agentState}) {
    for (auto step :
         {Step::createTemporary, Step::write, Step::flush, Step::rename, Step::flushFolder}) {
      cases.push_back({file, step});
    }
  }
  return cases;
}
INSTANTIATE_TEST_SUITE_P(EveryFileEveryStep, WriteFault, ::testing::ValuesIn(allFaults()));

class DamagedFile : public StateFileFaultTest, public ::testing::WithParamInterface<StateFile> {};

// A file that can't be parsed counts as empty, as ever, but its bytes are
// kept beside it, once, before the first save overwrites it.
TEST_P(DamagedFile, IsKeptBesideItOnceBeforeItIsOverwritten) {
  const StateFile file = GetParam();
  const auto damaged = core::DamagedFileKeeper::damagedPath(path(file));
  files_.addFile(path(file), "{ cut sh");
  change(file, 1);
  change(file, 2);
  clock_.advance(seconds(1));
  EXPECT_EQ(onDisk(file), 2);
  ASSERT_TRUE(files_.readFile(damaged).ok());
  EXPECT_EQ(files_.readFile(damaged).value(), "{ cut sh");
  EXPECT_EQ(loggedCount("its bytes are kept at " + damaged.string()), 1u);
}

INSTANTIATE_TEST_SUITE_P(EveryFile, DamagedFile,
                         ::testing::Values(StateFile::deferrals, StateFile::updateState,
                                           StateFile::agentState));

}  // namespace
}  // namespace velmo::agent
