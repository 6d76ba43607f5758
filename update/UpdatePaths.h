#pragma once
// Where a download lands on the local disk.
#include <QString>

// downloadDir + "/" + the last component of the URL's path; the query and
// the fragment play no part.
QString getLocalPath(const QString& downloadDir, const QString& url);
