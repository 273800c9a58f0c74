#pragma once

#include <array>
#include <string_view>

namespace velmo::core {

// The one table of notification names that the agent, the tool and the
// companion share. Each constant is named by the last component of its string.
namespace NotificationName {

inline constexpr std::string_view willPerformInstall = "com.marvenith.velmo.willPerformInstall";
inline constexpr std::string_view promptForUpdate = "com.marvenith.velmo.promptForUpdate";
inline constexpr std::string_view dialogResponse = "com.marvenith.velmo.dialogResponse";
inline constexpr std::string_view openApp = "com.marvenith.velmo.openApp";
inline constexpr std::string_view uiControllerQueueChanged =
    "com.marvenith.velmo.uiControllerQueueChanged";
inline constexpr std::string_view enqueueUpdateItem = "com.marvenith.velmo.enqueueUpdateItem";
inline constexpr std::string_view addItemsToUIControllerQueue =
    "com.marvenith.velmo.addItemsToUIControllerQueue";
inline constexpr std::string_view updateItemStateChange =
    "com.marvenith.velmo.updateItemStateChange";
inline constexpr std::string_view runningAppsProcessingComplete =
    "com.marvenith.velmo.runningAppsProcessingComplete";
inline constexpr std::string_view velmoAgentUpdateTasksCompleted =
    "com.marvenith.velmo.velmoAgentUpdateTasksCompleted";
inline constexpr std::string_view deferralsDidChange = "com.marvenith.velmo.deferralsDidChange";
inline constexpr std::string_view didPerformInstall = "com.marvenith.velmo.didPerformInstall";
inline constexpr std::string_view userInitiatedUpdateCheck =
    "com.marvenith.velmo.userInitiatedUpdateCheck";
inline constexpr std::string_view userInitiatedUpdateCheckInProgress =
    "com.marvenith.velmo.userInitiatedUpdateCheckInProgress";
inline constexpr std::string_view userInitiatedUpdateCheckCompleted =
    "com.marvenith.velmo.userInitiatedUpdateCheckCompleted";
inline constexpr std::string_view installLogAppended = "com.marvenith.velmo.installLogAppended";
inline constexpr std::string_view postTestNotification = "com.marvenith.velmo.postTestNotification";

// The companion's own; nothing in the agent posts or reads it, but all
// programs take the string from here.
inline constexpr std::string_view targetView = "com.marvenith.velmo-notifier.targetView";

// The platform's will-sleep name, aliased here under its own value.
inline constexpr std::string_view workspaceWillSleep = "NSWorkspaceWillSleepNotification";

// Posted by the management layer when a configuration profile or a managed
// preference file changes; both carry the changed domains under
// kChangedDomainsKey.
inline constexpr std::string_view managementStatusChangedForDomains =
    "com.apple.MCX._managementStatusChangedForDomains";
inline constexpr std::string_view changedDomains = "com.apple.MCX.changedDomains";

// In-process only: one of the stores behind the standard user defaults changed.
inline constexpr std::string_view userDefaultsDidChange = "NSUserDefaultsDidChangeNotification";

// Posted only by root programs (the tool, the management layer). The bus
// lets every account post every name, so a post of one of these from any
// other account is dropped before an observer sees it. The companion's names
// (userInitiatedUpdateCheck, enqueueUpdateItem, dialogResponse) stay open.
inline constexpr std::array<std::string_view, 9> rootOnly{
    didPerformInstall,
    willPerformInstall,
    addItemsToUIControllerQueue,
    updateItemStateChange,
    managementStatusChangedForDomains,
    changedDomains,
    "com.apple.configurationprofiles.profileListChanged",
    "com.apple.configurationprofiles.payloadChanged",
    "MCXChanged",
};

}  // namespace NotificationName

// User-info key of the management notifications: an array of domain strings.
inline constexpr std::string_view kChangedDomainsKey = "com.apple.MCX.changedDomains";

}  // namespace velmo::core
