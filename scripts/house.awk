# Which way includes point: names each that points the wrong way, and fails then.
# awk -f scripts/house.awk $(find vexutils platform tools -name '*.h' -o -name '*.cpp')
BEGIN {
    # Heights in the library: a source includes what is at its own height or below.
    fill(room, "vexel 0 rt_sync 1 rt_dup 1 queues 1 rt_cache 2 internal 2 rt_lclogwrp 3 rt_shm 4")
    fill(header, "vexel.h 0 rt_sync.h 1 rt_dup.h 1 notifQue.h 1 rt_evtq.h 1 rt_cache.h 2 rt_lclogwrp.h 3 " \
                 "rt_shm_layout.h 4 rt_shm.h 4")
    # A drive's bay and slot are asked of rt_shm by these two, and by no other source below it. The third is about the locks
    # of all headers, and no source includes it.
    fill(upwards, "vexutils/rt_cache/rt_cache_lookup.cpp 1 vexutils/rt_cache/rt_cache_cmdstatus.cpp 1 " \
                  "vexutils/internal/lock_contract.h 1")
    fill(foreign, "nlohmann 1 CLI 1 gtest 1 tests 1 tools 1 linux 1")
    # Files of the Linux platform that the tools write, read or show.
    fill(shared, "bpapi_topology.h 1 event_log.h 1 json_lines.h 1 os_support.h 1 shm_admin.h 1")
    for (i = 1; i < ARGC; ++i) {
        if (sub(/^platform\/linux\//, "", ARGV[i])) {
            of_platform[ARGV[i]]
            ARGV[i] = "platform/linux/" ARGV[i]
        }
    }
}

/^#include [<"]/ {
    include = substr($2, 2, length($2) - 2)
    owner = first_folder(include)
    name = include
    sub(/.*\//, "", name)
    ++seen[side = first_folder(FILENAME)]
    if (side == "vexutils") {
        inside = substr(FILENAME, 10)
        own = first_folder(inside)
        height = own == "" ? header[inside] : room[own]
        good = height != "" && !(owner in foreign)
        if (include in header)
            good = good && (header[include] <= height || FILENAME in upwards)
        else if (owner in room)  # private to it
            good = good && (owner == own || owner == "internal" && own != "")
    } else {
        good = !(owner in room) && (side == "tools" ? !(name in of_platform) || name in shared : !(include in header))
    }
    if (!good) {
        print FILENAME ":" FNR ": must not include " include
        bad = 1
    }
}

END {
    exit bad || !(seen["vexutils"] && seen["platform"] && seen["tools"])
}

function fill(map, text,    word, count, i) {
    count = split(text, word)
    for (i = 1; i < count; i += 2)
        map[word[i]] = word[i + 1]
}

function first_folder(path) {
    return path ~ /\// ? substr(path, 1, index(path, "/") - 1) : ""
}
