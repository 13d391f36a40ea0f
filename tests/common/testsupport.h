#pragma once
// Helpers shared by the test programs.

#include <QByteArray>
#include <QString>

// Writes the demo repository (tools/demo/demorepository.h describes its contents) into
// parentDir/demo and returns that folder's path; an empty text when it could not be written
// (error, if given, says why).
QString writeDemo(const QString &parentDir, QString *error = nullptr);

// SHA-256 over every regular file below dir, in sorted order of relative path ("/" separated):
// each file contributes its relative path, a zero byte, its size and its bytes. Two trees with
// the same hash hold the same files with the same contents.
QByteArray sha256OfTree(const QString &dir);
