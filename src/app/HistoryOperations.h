#pragma once
// The work of `quillon history` on a History, independent of where the request
// came from, so that the daemon's routes give the same answers as the command
// line. Asking the user is the caller's part: remove() deletes what it is given.
//
// JSON field names (stable):
//   day:   day ("YYYY_MM_DD"), title (localised date), items, complete
//          (complete and not skipped); with tracks: [track] when listed
//   track: number (from 1, as the day lists it), trackname, radioname,
//          tracknum, date, time, complete, skipped, path
//
// Thread contract: as History (any thread); the daemon calls it on its main loop.
#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/OperationResult.h"

namespace quillon {

class History;
class HistoryDatabase;
class HistoryItem;

class HistoryOperations {
public:
    // A day, or one track of it.
    struct Target {
        std::string key;
        std::size_t number = 0;  // 0: the whole day
    };

    // A day key as typed ("2008_07_05", also "2008_7_5"), in its stored form.
    // Throws BadInput.
    static std::string checkedDay(const std::string& text);
    // "YYYY_MM_DD" or "YYYY_MM_DD:N". Throws BadInput.
    static Target parseTarget(const std::string& text);

    static nlohmann::json dayRecord(const std::string& key, const HistoryDatabase& day);
    static nlohmann::json trackRecord(const HistoryItem& item, std::size_t number);

    // Every day, oldest first, without tracks.
    static nlohmann::json days(const History& history);
    // The day with its tracks; NotFound when the history has no such day.
    static OperationResult day(const History& history, const std::string& key);
    // The days holding tracks whose name or station contains the words (any
    // case), each with only those tracks, numbered as their day lists them.
    static nlohmann::json search(History& history, const std::string& words);
    // Deletes the targets, all or nothing checked first (NotFound for a day
    // or track the history lacks), and writes the days that lost tracks. The
    // value: {removedDays, removedItems}.
    static OperationResult remove(History& history, const std::vector<Target>& targets);
    // Enters the MP3 files among the paths (folders searched through). BadInput
    // for a path that does not exist, NotFound when no MP3 file was found; the
    // value: the added tracks, each with its "day".
    static OperationResult add(History& history, const std::vector<std::string>& paths);
};

}  // namespace quillon
