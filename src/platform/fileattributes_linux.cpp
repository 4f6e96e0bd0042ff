#include "platform/fileattributes.h"

#include <QFile>
#include <sys/stat.h>

namespace klangor {

bool clearReadOnlyAttribute(const QString &path)
{
    // A link is left as it is: changing the mode would change the file it points to, which may
    // lie anywhere. The link is replaced itself when the program writes its file.
    struct stat st;
    if (path.isEmpty() || ::lstat(QFile::encodeName(path).constData(), &st) != 0 ||
        !S_ISREG(st.st_mode))
        return false;
    return ::chmod(QFile::encodeName(path).constData(), (st.st_mode & 07777) | S_IWUSR) == 0;
}

} // namespace klangor
