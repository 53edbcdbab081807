// Switches about the exclusion rules.
#include <cstdio>

#include "QzCommands.h"
#include "QzInfoManager.h"
#include "QzLog.h"

// -merge_exclude_rules: makes sure both rule files exist (a recreated
// editable file gets every merge block at once), then merges any block the
// merge log does not name yet. Either way of changing the file counts.
int CmdMergeExcludeRules(const Args&) {
    bool editableRecreated = false;
    QzInfoManager::MakeSureExcludeRulesFilesExistIn_qzdata_Folder(&editableRecreated);
    const bool merged = QzInfoManager::MakeSureAllEditableExcludeRuleBlocksAreMerged();
    if (editableRecreated || merged) {
        const char* const msg = "qzfilelist -merge_exclude_rules - Some new blocks were merged!";
        QzLog::WriteLine(msg);
        std::printf("%s\n", msg);
    } else {
        QzLog::WriteLine("qzfilelist -merge_exclude_rules - nothing changed, nothing needed to be merged.");
        std::printf("Nothing changed.\n");
    }
    return 0;
}
