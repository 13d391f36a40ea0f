#pragma once
// A copy of the demo server whose Acme database also holds what a careless or hostile repository
// can hold, written with SQL on the demo's own tables:
//
//   folders below the root (all live):
//     101 "???"  102 ".."  103 "."  104 "<>|"  105 "   "    names that clean to no name
//     107 "X:Y"  108 "X*Y"                                   siblings that clean alike
//     109 "Esc" ESC "[31mRed" LF "Line"                       control characters in a name
//     110 "Blocked" > 111 "Report.pdf"                        a folder named like a document of its parent
//     120 "Loop" > 121 "Again" > 121 "Again" ...             a duplicated row: a folder listed below itself
//     200 "Deep" > 201 "level 201" > ... > 20200              a chain 20,000 levels deep
//   and 106 "|" below Projects (14).
//   documents: 5001 "Same:Title" and 5002 "Same?Title" (.txt, in 101), 5003 "Report" (.pdf, in 110),
//   5004 "Bell" BEL "Title" (.txt, in 109), 5005 "Up" (.txt, in 102).
//
// zar_Folder loses its key (so a Rec_ID may repeat). Returns the server folder, "" on failure.

#include <QString>

QString writeHostileServer(const QString &demoServer, const QString &dir, QString *error);
