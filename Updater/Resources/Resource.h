#pragma once

// Identifiers of the program's resources, for the resource compiler and the code alike.

#define IDD_PROGRESS 108
#define IDI_UPDATER 131

#define IDC_MESSAGE_TEXT 1001
#define IDC_PROGRESS_BAR 1002

// String table; every text exists in every language (see Updater.rc).
#define IDS_TITLE 101
#define IDS_CHECKING 102
#define IDS_DOWNLOADING 103
#define IDS_APPLYING 104
#define IDS_UPDATE_PROMPT 105
#define IDS_OFFLINE 106
#define IDS_UPDATE_NOTICE 107
