#include <QFileSystemWatcher>
#include <utility>

#include "platform/desktop.h"
#include "platform/qt/convert.h"

namespace brickfall {
namespace {

class Watcher : public FolderWatch {
  public:
    explicit Watcher(std::function<void()> changed) {
        QObject::connect(&watcher_, &QFileSystemWatcher::directoryChanged, &watcher_,
                         [changed = std::move(changed)] { changed(); });
    }
    bool Add(const std::string& folder) { return watcher_.addPath(ToQString(folder)); }

  private:
    QFileSystemWatcher watcher_;
};

}  // namespace

std::unique_ptr<FolderWatch> WatchFolder(const std::string& folder, std::function<void()> changed) {
    auto watch = std::make_unique<Watcher>(std::move(changed));
    return watch->Add(folder) ? std::move(watch) : nullptr;
}

}  // namespace brickfall
