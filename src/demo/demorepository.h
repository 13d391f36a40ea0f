#pragma once
// The demo repository: a small embedded server, written by code, that holds every case the tool
// has to get right. It is what `parcelwise demo DIR` writes, what the tests run against and what
// the README's example uses. The same folder always receives byte-identical files.
//
// Server folder DIR (sign in with user "demo", empty password; server.ini holds the login):
//
//   zar_Master.sqlite   catalogue Com_Company, in Com_db order:
//     com_id 1  Acme             "L"                     live company, the full case list below
//     com_id 2  AcmeArchive      "A"  live_com_id 1      Acme's archive (bytes of archived docs)
//     com_id 3  Globex           "l"  (lower-case code)  small live company
//     com_id 4  Initech          "L"                     listed, but there is no Initech.sqlite
//     com_id 5  Scratch          "L"                     a SQLite file without repository tables
//     com_id 6  VandelayArchive  "a"  live_com_id 99     archive whose pairing names no row
//     com_id 7  Twofold          "L"                     live company with a folder in both lists
//     com_id 8  TwofoldArchive   "A"  live_com_id 7      its archive: the duplicate-key error case
//   Acme.sqlite, AcmeArchive.sqlite, Globex.sqlite, Twofold.sqlite, TwofoldArchive.sqlite,
//   Scratch.sqlite, VandelayArchive.sqlite, server.ini.
//
// Acme folders (Rec_ID  name  type  icon  [lifecycle]); L = zar_FolderLive, A = ZAR_FolderArchived.
// Children of the root, in name order (A-only rows show only in the archive view):
//    1  "Acme Corporation"  ROOT     1   L   (Folder_Parent 0, the only first-level row)
//    2  "A/B"               FOLDER   5   L   } cleaned names coincide ("A B"), one document each
//    3  "A:B"               FOLDER   6   L   }
//    4  "Admin"             ADMIN    0   L   IsAdmin 1
//   20  "Archive 2010"      FOLDER   1   A   archived subtree, see below
//    5  "Branch Office"     SITE     0   L
//    6  "Contracts"         CABINET  0   L
//    7  "Docs"              FOLDER   2   L   the document-title cases
//    8  "Docs 2006"         FOLDER   0   L   prefix sibling of Docs; icon 0 right after a valid
//                                            icon (image carry-over)
//    9  "Empty Folder"      FOLDER   3   L   no documents, no children
//   10  "Finance"           FOLDER   4   L   live folder with archived documents below it
//   11  "Head Office"       SITE     0   L
//   12  "Legal"             FOLDER  99   L   holds a live folder with archived documents
//   13  "Marketing"         FOLDER   7   L
//   38  "Old Branch"        SITE     0   A   archived site with an archived document
//   14  "Projects"          FOLDER   8   L   Projects > Plans > 2016 > Reports, documents on each level
//   15  "Q1: Plans/Drafts"  FOLDER   9   L   special characters in a folder name
//   16  "Recycle Bin"       RECYCLE  0   L
//   17  "Templates"         FOLDER  10   L
//   18  "Training"          FOLDER  11   L
//   19  "Unsorted"          FOLDER  12   L
// Deeper folders:
//   21 "Filing Room" CABINET 0 L (in 11) > 22 "Invoices" FOLDER 4 L
//   23 "Reception" FOLDER 1 L (in 5);  24 "Suppliers" FOLDER 2 L (in 6)
//   25 "Plans" FOLDER 3 L (in 14) > 26 "2016" FOLDER 4 L > 27 "Reports" FOLDER 5 L
//   28 "Ledgers 2009" FOLDER 6 L (in 10): live and archived documents
//   29 "Budgets" FOLDER 7 L (in 10): live documents only (hidden in the archive view)
//   30 "Shared Cases" FOLDER 7 L (in 12): live and archived documents
//   31 "Current Cases" FOLDER 8 L (in 12): live documents only
//   In 20 "Archive 2010" (all A): 32 "Board Minutes" FOLDER 2; 33 "Old Projects" FOLDER 3 >
//   34 "Phase 1" FOLDER 4 > 35 "Closeout" FOLDER 12 (archived documents only at the bottom);
//   36 "Closed Accounts" CABINET 0; 37 "Empty Archived" FOLDER 5 (no documents: hidden).
//
// Acme documents (rec_id, folder, File_Name, File_Description), live unless marked archived:
//   1001  2 ab-slash.txt "Slash folder note"        1002  3 ab-colon.txt "Colon folder note"
//   1003  4 policy.pdf "Admin policy"               1004 23 visitors.csv "Visitor log"
//   1005  6 master-agreement.pdf "Master agreement" 1006 24 suppliers.csv "Supplier list"
//   In 7 "Docs":
//   1007 minutes.txt "Minutes 12/03/2015"      FileActualDate 2016-03-05 14:07:09.250
//   1008 agenda.txt "Agenda: Kick-off"         FileActualDate NULL, File_DateUploaded 2015-12-31 23:59:59.000
//   1009 faq.txt "What is new?"                both dates NULL
//   1010 specs.txt "Specs *draft*"             FileActualDate 2014-07-01 08:30:00.005 (ms 5)
//   1011 quote.txt "Quote "Alpha""             FileActualDate 2016-07-15 12:00:00.000 (summer)
//   1012 internal.txt "<Internal> memo"        1013 survey.csv "Yes|No survey"
//   1014 paths.txt "C:\Temp notes"             1015 all-marks.txt "All marks \ / : * ? " < > | here"
//   1016 padded.txt "  Padded title  "         (leading and trailing blanks)
//   1017 dup-first.txt "Duplicate title"  and  1018 dup-second.txt "Duplicate title": equal titles
//        and extensions; their order under "order by File_Description" is not defined, but 1017,
//        the lower id, keeps the title and 1018 is "Duplicate title [1018].txt" (each text names
//        its own rec_id).
//   1019 long.txt: a 300-character title (too long for a file name)
//   1020 blank.txt ""  (empty title: written "[1020].txt", never a bare hidden ".txt")
//   1021 "spaces" "   " (title of three blanks, stored name without a point)
//   1022 "nothing" "" (empty title and no extension: the name is empty, the fallback [1022] applies)
//   1023 "README" "Plain notes" (stored name without a point)
//   1024 "report.final.docx " "Final report" (trailing blank; extension .docx; a real .docx)
//   1025  8 summary-2006.txt "Summary 2006"        1026 10 q1.csv "Q1 figures"
//   1027 10 chart.png "Revenue chart"              1028 28 ledger-index.txt "Ledger index"
//   1029 29 budget-2017.csv "Budget 2017"          1030 22 inv-001.pdf "Invoice 001"
//   1031 22 inv-002.pdf "Invoice 002"              1032 11 welcome.rtf "Welcome letter"
//   1033 12 nda.rtf "NDA template"                 1034 30 case-list.txt "Case list"
//   1035 31 case-2017.pdf "Case 2017-01"           1036 13 logo.png "Logo"
//   1037 13 brochure.pdf "Brochure"                1038 14 charter.docx "Project charter"
//   1039 25 plan.txt "Master plan"                 1040 26 timeline.csv "Timeline 2016"
//   1041 27 report-q4.pdf "Q4 report"              1042 27 figures.png "Figures"
//   1043 15 draft.txt "Draft 1"                    1044 16 old-memo.txt "Old memo"
//   1045 17 letter.rtf "Letter template"           1046 17 cv.txt "Résumé Müller" (non-ASCII)
//   1047 18 course.pdf "Course outline"            1048 19 "misc" "Miscellaneous" (no point)
// Archived documents (ZAR_FileArchived; file_data NULL in Acme, bytes in AcmeArchive):
//   1101 28 ledger-2009.csv "Ledger 2009"          1102 28 audit.pdf "Audit 2009"
//   1110 30 case-2008.pdf "Case 2008-04"           1111 30 settlement.rtf "Settlement"
//   1120 32 minutes-2009.txt "Minutes 2009"        1121 32 minutes-2010.txt "Minutes 2010"
//   1122 32 lost.txt "Lost minutes": its bytes are MISSING from zar_FileArchive (never listed)
//   1130 35 closeout.pdf "Closeout report"         1131 35 photo.png "Site photo"
//   1140 36 accounts.csv "Closed accounts"         1150 38 branch-history.txt "Branch history"
//   1160 20 index.txt "Archive index"
// Every other document has both dates set. Every document's content names its rec_id
// ("Document 1017: Duplicate title"), so an exported file can be traced back to its row.
//
// Archive view of the root (children with archived documents in or below them), in order:
//   20 Archive 2010 (A), 10 Finance (L), 12 Legal (L), 38 Old Branch (A). Clicking Legal lists
//   30 Shared Cases once. Every folder of the archive view opens without an error.
//
// Globex: 1 "Globex Inc" ROOT > 2 "Sales" FOLDER 1, 3 "Support" FOLDER 2 > 4 "Tickets" FOLDER 3;
//   documents 1001 pitch.pdf "Sales pitch" (2), 1002 faq.txt "Support FAQ" (3),
//   1003 tickets.csv "Open tickets" (4). All live; the archive tables exist and are empty.
// Twofold: 1 "Twofold Ltd" ROOT > 2 "Current Cases" FOLDER 8 L, 3 "Shared Cases" FOLDER 7 in BOTH
//   folder lists (a repository inconsistency); documents 2001 case-2019.pdf "Case 2019-02" (2),
//   2002 case-list.txt "Case list" (3), archived 2003 case-2008.pdf "Case 2008-04" (3, bytes in
//   TwofoldArchive). The live view is fine; clicking the root of TwofoldArchive lists Shared Cases
//   once per folder list: the duplicate-key error case.
// VandelayArchive: an empty zar_FileArchive. Scratch: one table "notes", nothing else.

#include <QString>
#include <QStringList>

namespace demo {

// Writes the demo server into dir (created when missing). Files of the demo's own names are
// replaced; other files in dir are left alone. On failure the demo's files are removed again and
// error (if given) says what went wrong.
bool writeDemoRepository(const QString &dir, QString *error = nullptr);

// The file names writeDemoRepository owns in its folder, in the order it writes them.
QStringList demoFileNames();

} // namespace demo

using demo::writeDemoRepository;
