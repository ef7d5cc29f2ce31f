#include "app/WebUiFile.h"

#include "config/SharedFile.h"

#include <unistd.h>

void writeWebUiFile(const QString &path, const QByteArray &bytes) {
    UniqueFd file = SharedFile::openToWrite(path);
    if (!file.isValid() && SharedFile::removeObstacle(path))
        file = SharedFile::openToWrite(path);
    if (!file.isValid()) {
        file = SharedFile::openToRead(path); // write-protected: given its mode back for the next write
    } else if (!SharedFile::writeAll(file, bytes)) {
        // Half a file is as good as none, and would leave no room for what the Web UI writes until the next write.
        (void)!::ftruncate(file.get(), 0);
    }
    if (file.isValid())
        SharedFile::shareWithWebUi(file);
}
