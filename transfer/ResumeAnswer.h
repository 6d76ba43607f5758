#pragma once
// What to do with the answer to a ranged request that resumes a partial file.
//
// The kept bytes may only be followed by the rest of the same file: a server
// or proxy that ignores "Range" answers 200 with the whole file, one that
// cannot serve it answers 416 or an error page, and appending any of those to
// the kept prefix would leave a file that unpacks as garbage or not at all.
#include <QString>

enum class ResumeAnswer {
    Append,   // 206 whose Content-Range starts at the requested offset
    Restart,  // 200: the whole file, written over the kept bytes from byte 0
    Refuse,   // anything else: the kept bytes stay as they are, the fetch fails
};

// offset is the first byte asked for ("Range: bytes=offset-"); contentRange
// the answer's "Content-Range" value ("bytes 44-4999/5000").
ResumeAnswer classifyResumeAnswer(int status, const QString& contentRange, qint64 offset);
