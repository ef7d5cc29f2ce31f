#include "app/WebUiFile.h"

#include "config/SharedFile.h"

void writeWebUiFile(const QString &path, const QByteArray &bytes) {
    UniqueFd file = SharedFile::openToWrite(path);
    if (!file.isValid() && SharedFile::removeObstacle(path))
        file = SharedFile::openToWrite(path);
    if (file.isValid()) {
        SharedFile::writeAll(file, bytes); // half a file is as good as none: both last until the next write
    } else {
        file = SharedFile::openToRead(path); // write-protected: given its mode back for the next write
    }
    if (file.isValid())
        SharedFile::shareWithWebUi(file);
}
