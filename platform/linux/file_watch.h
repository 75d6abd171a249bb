/*
 * file_watch.h - notices when a file was written or replaced.
 */
#ifndef PLATFORM_LINUX_FILE_WATCH_H
#define PLATFORM_LINUX_FILE_WATCH_H

#include <sys/stat.h>

#include <string>

#include "os_support.h"

namespace vexplatform {

/*
 * Which state of a file was read last. A file that was changed just before it was looked at may
 * change again within the same tick of its clock, so it counts as changed until it has settled.
 */
class FileStamp {
  public:
    /* Has the file changed since the last call? A file that is not there counts as empty. */
    bool changed(const std::string& path);

  private:
    struct stat seen_ {};
    bool settled_ = false;
};

/* Sleeps until a file may have changed. Used by one thread. */
class FileWatch {
  public:
    /* The file's folder is watched, so that a file renamed into its place is seen. */
    explicit FileWatch(const std::string& path);

    /*
     * Waits until the file was written and closed or replaced, wake is readable, or a second
     * passed: links into other folders and file systems without notices need a look from time to
     * time.
     */
    void wait(int wake);

  private:
    void watch_folder();
    void drain();

    std::string folder_;
    UniqueFd notices_;
    bool watched_ = false;
};

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_FILE_WATCH_H */
