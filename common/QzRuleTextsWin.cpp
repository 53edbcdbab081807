// The Windows rules of the built-in texts, in file order: the mandatory
// rules, the default editable rules and the merge blocks (whose few rules for
// the other platform stand here too, at the end of their block, since a block
// is merged and logged as a whole). Rules with "osVers" other than "*" are
// written but never applied.
#include "QzRuleTexts.h"

namespace QzRuleTexts {

namespace {

// clang-format off
const Row kMandatoryWin[] = {
    Section("Below here is for Microsoft Windows systems (7, 8, 10, 11)"),
    Group(R"(This block is for "Korvatine" files.  It is a circularity to change a Korvatine log file, then back it up, which changes it, so it is backed up, never ending loop forever)"),
    Win("*", R"(:\ProgramData\Korvatine\)", "*", "*", "*", "*", "*"),  // 1
    Win("xp", R"(:\Documents and Settings\)", R"(\Korvatine\qzdata\)", "*", "*", "*", "*"),  // 2
    Win("*", R"(:\.qzvol\)", "*", "*", "*", "*", "*"),  // 3
    Group("Top level folders on Windows we absolutely do not want to back up because they contain executable software or temp files"),
    Win("*", R"(:\windows\)", "*", "*", "*", "*", "*"),  // 4
    Win("*", R"(:\windows.old\)", "*", "*", "*", "*", "*"),  // 5
    Win("*", R"(:\program files\)", "*", "*", "*", "*", "*"),  // 6
    Win("*", R"(:\program files (x86)\)", "*", "*", "*", "*", "*"),  // 7
    Win("*", R"(:\$recycle.bin\)", "*", "*", "*", "*", "*"),  // 8
    Win("*", R"(:\$recycler\)", "*", "*", "*", "*", "*"),  // 9
    Win("*", R"(:\FileHistory\)", "*", "*", "*", "*", "*"),  // 10
    Win("*", R"(:\$windows.~bt\)", "*", "*", "*", "*", "*"),  // 11
    Win("*", R"(:\$windows.~ws\)", "*", "*", "*", "*", "*"),  // 12
    Win("*", R"(:\wd smartware.swstor\)", "*", "*", "*", "*", "*"),  // 13
    Win("*", R"(:\wdsmartware.swstor\)", "*", "*", "*", "*", "*"),  // 14
    Win("*", R"(:\wdbackup.swstor\)", "*", "*", "*", "*", "*"),  // 15
    Win("*", R"(:\recycler\)", "*", "*", "*", "*", "*"),  // 16
    Win("*", R"(:\msocache\)", "*", "*", "*", "*", "*"),  // 17
    Win("*", R"(:\system volume information\)", "*", "*", "*", "*", "*"),  // 18
    Win("*", R"(:\i386\)", "*", "*", "*", "*", "*"),  // 19
    Win("*", R"(:\users\)", R"(:\users\all users\microsoft\)", "*", "*", "*", "*"),  // 20
    Win("*", R"(:\users\)", R"(:\users\all users\microsoft help\)", "*", "*", "*", "*"),  // 21
    Win("*", R"(:\users\)", R"(\appdata\local\microsoft\onedrive\logs\)", "*", "*", "*", "*"),  // 22
    Win("*", R"(:\users\)", R"(\appdata\local\microsoft\windows\caches\)", "*", "*", "*", "*"),  // 23
    Win("*", R"(:\users\)", R"(\appdata\local\microsoft\windows\)", "*", "*", "*", "log"),  // 24
    Group(R"(This block is for "Microsoft Operating System" files)"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\USOPrivate\)", "*", "*", "*", "*"),  // 25
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\USOShared\)", "*", "*", "*", "*"),  // 26
    Win("*", "*", "*", "*", "*", "pagefile.sys", "sys"),  // 27
    Group("often 2 GBytes or more"),
    Win("*", "*", "*", "*", "*", "hiberfil.sys", "sys"),  // 28
    Group("often 4 GBytes or more"),
    Win("*", "*", "*", "*", "*", "swapfile.sys", "sys"),  // 29
    Group(R"(This block is for `Microsoft\Search\Data" files, part of Windows Desktop Search)"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Search\Data\)", "*", "*", "*", "*"),  // 30
    Win("xp", R"(:\Documents and Settings\All Users\)", R"(\Microsoft\Search\Data\)", "*", "*", "*", "*"),  // 31
    Group(R"(This block is for Microsoft explorer cruft ending in "db".  All of these are recreated automatically so should not be backed up.)"),
    Win("*", "*", "*", "*", "*", R"(\thumbs.db)", "db"),  // 32
    Win("*", "*", "*", "*", "*", R"(\thumbcache_sr.db)", "db"),  // 33
    Win("*", "*", "*", "*", "*", R"(\thumbcache_1024.db)", "db"),  // 34
    Win("*", "*", "*", "*", "*", R"(\thumbcache_256.db)", "db"),  // 35
    Win("*", "*", "*", "*", "*", R"(\thumbcache_32.db)", "db"),  // 36
    Win("*", "*", "*", "*", "*", R"(\thumbcache_idx.db)", "db"),  // 37
    Win("*", "*", "*", "*", "*", R"(\dfsr.db)", "db"),  // 38
    Win("*", "*", R"(\AppData\Local\Microsoft\Windows\Explorer\iconcache_)", "*", "*", "*", "db"),  // 39
    Win("*", "*", "*", "*", "*", R"(\iconcache.db)", "db"),  // 40
    Group(R"(This block is for Microsoft LiNK files in "lnk" (links to executabels).  We exclude the "recent items" lists here.)"),
    Win("*", R"(:\Users\)", R"(\Microsoft\Windows\Recent\)", "*", "*", "*", "lnk"),  // 41
    Win("*", R"(:\Users\)", R"(\Microsoft\Windows\Recent\)", "*", "*", "*", "automaticDestinations-ms"),  // 42
    Win("*", R"(:\Users\)", R"(\Microsoft\Office\Recent\)", "*", "*", "*", "lnk"),  // 43
    Group(R"(This block is for Microsoft messenger and Windows live contacts cruft ending in "edb" and a Messenger log file ending in "log.gz" and Messenger ".dat" files)"),
    Win("*", "*", "*", "*", "*", R"(\tmp.edb)", "edb"),  // 44
    Win("*", "*", "*", "*", "*", R"(\tempedb.edb)", "edb"),  // 45
    Win("*", "*", R"(\microsoft\messenger\)", "*", "*", ".log.gz", "gz"),  // 46
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\messenger\activesharingfolder.dat)", "dat"),  // 47
    Group("This block is for Microsoft Terminal Server files"),
    Win("*", R"(:\Users\)", R"(\Microsoft\Terminal Server Client\)", "*", "*", "*", "bmc"),  // 48
    Group("This block is for other various Microsoft media and active sync (.stg) and Microsoft Initialization files (.ini) and other tools cruft."),
    Win("*", "*", "*", "*", "*", R"(\currentdatabase_360.wmdb)", "wmdb"),  // 49
    Win("*", "*", "*", "*", "*", R"(\members.stg)", "stg"),  // 50
    Group("This block is for McAfee virus definitions, and an old McAfee XP cruft"),
    Win("xp", R"(:\Documents and Settings\All Users\)", R"(\all users\application data\)", R"(\mcafee\desktopprotection\)", "*", "*", "*"),  // 51
    Win("*", R"(:\ProgramData\)", R"(\mcafee\desktopprotection\)", "*", "*", "*", "*"),  // 52
    Group("This block is for Microsoft security data that can be downloaded and recreated so shouldn't be backed up"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Microsoft Antimalware\)", "*", "*", "*", "*"),  // 53
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Microsoft Security Client\)", "*", "*", "*", "*"),  // 54
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\windows defender\)", "*", "*", "*", "*"),  // 55
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\Caches\)", "*", "*", "*", "*"),  // 56
    Group(R"(This block is for Microsoft RAC "Windows Reliability Monitoring")"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\rac\)", "*", "*", "*", "*"),  // 57
    Group("This block is to exclude the Windows chk files - windows file fragments cleaned by ScanDisk"),
    Win("*", "*", "*", "*", "*", R"(\fsr.chk)", "chk"),  // 58
    Group("This block is to exclude the Windows devices - thousands of useless files (not customer data files)"),
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\device)", "*", "*", "*", "*"),  // 59
    Group("This block is for Microsoft Error Reporting that is super chatty and does not need to be backed up"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\windows\wer\)", "*", "*", "*", "*"),  // 60
    Group("This block is for Win7 grew a chatty crypto folder related to HTTPS crypto and assistance"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\crypto\)", "*", "*", "*", "*"),  // 61
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\assistance\)", "*", "*", "*", "*"),  // 62
    Win("*", R"(:\Users\)", R"(\appdata\locallow\microsoft\cryptneturlcache\)", "*", "*", "*", "*"),  // 63
    Win("*", R"(:\Users\)", R"(\updatususer\appdata\)", "*", "*", "*", "*"),  // 64
    Group("This block is for excluding all of AVG's virus definition data that is auto downloadable from AVG if lost"),
    Win("*", R"(:\ProgramData\)", R"(:\ProgramData\avg9\)", "*", "*", "*", "*"),  // 65
    Group("This block is for excluding NVIDIA's folders that change every single day and auto software updates"),
    Win("*", R"(:\ProgramData\)", R"(:\programdata\nvidia corporation\)", "*", "*", "*", "*"),  // 66
    Win("*", R"(:\ProgramData\)", R"(:\programdata\nvidia\)", "*", "*", "*", "*"),  // 67
    Win("*", "*", R"(\updatus)", "*", "*", R"(\updatus\journalbs.jour.dat)", "dat"),  // 68
    Win("*", "*", R"(\updatus)", "*", "*", ".tm.blf", "blf"),  // 69
    Group(R"(This block is for the backup program "Retrospect".  Korvatine does NOT backup other backups, period. Korvatine only backs up ORIGINAL data directly.)"),
    Win("*", "*", "retrospect", "*", "*", "*", "rdb"),  // 70
    Win("*", "*", "backup set", "*", "*", "*", "rdb"),  // 71
    Group("This block is identical to the block immediately above, but specific to Windows XP since the registry moved locations"),
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\ntuser.dat)", "dat"),  // 72
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\ntuser.dat.log)", "log"),  // 73
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\ntuser.dat.log1)", "log1"),  // 74
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\ntuser.dat.log2)", "log2"),  // 75
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\microsoft\windows\usrclass.dat)", "dat"),  // 76
    Win("xp", R"(:\Documents and Settings\)", "*", "*", "*", R"(\microsoft\windows\usrclass.dat.log1)", "log1"),  // 77
    Win("xp", R"(:\Documents and Settings\)", R"(\ntuser.dat)", "*", "*", ".tm.blf", "blf"),  // 78
    Win("xp", R"(:\Documents and Settings\)", R"(\usrclass.dat)", "*", "*", ".tm.blf", "blf"),  // 79
    Group("This block is for Windows Updates.  Background Intelligent Transfer Service (BITS) is the downloader for windows updates."),
    Win("*", R"(:\ProgramData\)", "*", "*", "*", R"(\downloader\qmgr0.dat)", "dat"),  // 80
    Win("*", R"(:\ProgramData\)", "*", "*", "*", R"(\downloader\qmgr1.dat)", "dat"),  // 81
    Group("This block is for Internet Explorer history and cache files"),
    Win("*", R"(:\Users\)", R"(\microsoft\internet explorer\recovery\active\recoverystore)", "*", "*", "*", "dat"),  // 82
    Win("*", R"(:\Users\)", "*", "*", "*", "*", "regtrans-ms"),  // 83
    Win("*", R"(:\Users\)", "*", "*", "*", ".customdestinations-ms", "*"),  // 84
    Win("xp", "*", R"(\locals~1\temp\)", "*", "*", "*", "*"),  // 85
    Win("xp", "*", R"(\local settings\history\history.ie5\)", "*", "*", "*", "*"),  // 86
    Group("This block is for temporary internet files and cookies, temp folders"),
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows defender\)", "*", "*", "*", "*"),  // 87
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows\wer\)", "*", "*", "*", "*"),  // 88
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows\notifications\)", "*", "*", "*", "*"),  // 89
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\explorer\thumbcache_)", "*", "*", "*", "*"),  // 90
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows\explorer\thumbcache_)", "*", "*", "*", "*"),  // 91
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows mail\stationery\)", "*", "*", "*", "*"),  // 92
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft help)", "*", "*", "*", "*"),  // 93
    Group(R"(This block is for temporary Adobe files.  File extension "sol" is Adobe Flash cruft, Lightroom cache files (automatically rebuilt))"),
    Win("*", R"(:\Users\)", R"(\appdata\local\adobe\)", "*", "*", "*", "*"),  // 94
    Win("*", "*", "*", "*", "*", R"(\reviewplayer.sol)", "sol"),  // 95
    Win("*", "*", "*", "*", "*", R"(\settings.sol)", "sol"),  // 96
    Win("*", "*", "*", "*", "*", R"(\videostats.sol)", "sol"),  // 97
    Win("*", "*", R"(\macromedia\flash player\#sharedobjects\)", "*", "*", "*", "sol"),  // 98
    Win("*", "*", R"(previews.lrdata\)", "*", "*", "*", "*"),  // 99
    Group("this is a slow test, would like to narrow it?"),
    Win("*", "*", "*", "*", "*", "catalog.lrcat-journal", "*"),  // 100
    Win("*", "*", "*", "*", "*", "catalog.lrcat.lock", "lock"),  // 101
    Group("This block is for various anti-virus definitions"),
    Win("*", R"(:\ProgramData\)", R"(:\programdata\mcafee\)", "*", "*", "*", "*"),  // 102
    Win("*", R"(:\ProgramData\)", R"(:\programdata\sophos\endpoint defense\)", "*", "*", "*", "*"),  // 103
    Win("*", R"(:\ProgramData\)", R"(:\programdata\sentinel\)", "*", "*", "*", "*"),  // 104
    Win("*", R"(:\ProgramData\)", R"(:\programdata\avg\)", "*", "*", "*", "*"),  // 105
    Win("*", R"(:\ProgramData\)", R"(:\programdata\f-secure\log\)", "*", "*", "*", "*"),  // 106
    Win("*", R"(:\ProgramData\)", R"(:\programdata\kaspersky lab\)", "*", "*", "*", "*"),  // 107
    Win("*", R"(:\ProgramData\)", R"(:\programdata\norton\)", "*", "*", "*", "*"),  // 108
    Win("*", R"(:\ProgramData\)", R"(:\programdata\checkpoint\)", "*", "*", "*", "*"),  // 109
    Win("*", R"(:\ProgramData\)", R"(:\programdata\symantec\)", "*", "*", "*", "*"),  // 110
    Win("*", R"(:\ProgramData\)", R"(:\programdata\avast software\)", "*", "*", "*", "*"),  // 111
    Win("*", R"(:\ProgramData\)", R"(:\programdata\gfi\)", "*", "*", "*", "*"),  // 112
    Win("*", R"(:\ProgramData\)", R"(:\programdata\malwarebytes\)", "*", "*", "*", "*"),  // 113
    Group("This block is for temporary Google files"),
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\google\googleearth\dbcache.dat)", "dat"),  // 114
};

const Row kEditableWin[] = {
    Section("Below here is for Microsoft Windows systems (7, 8, 10, 11)"),
    Group("This block are the optional Windows excludes the customer is allowed to edit"),
    Group("This block is for Internet Explorer history and cache files"),
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\microsoft\windows\webcache\webcachev01.dat)", "dat"),  // 1
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\cookies\index.dat)", "dat"),  // 2
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\recent\index.dat)", "dat"),  // 3
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\userdata\index.dat)", "dat"),  // 4
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\feeds cache\index.dat)", "dat"),  // 5
    Group("This block is for temporary internet files and cookies, temp folders"),
    Win("*", R"(:\Users\)", R"(\local settings\temporary internet files\)", "*", "*", "*", "*"),  // 6
    Win("*", R"(:\Users\)", R"(\windows\temporary internet files\)", "*", "*", "*", "*"),  // 7
    Win("*", R"(:\Users\)", R"(\microsoft\windows\cookies\)", R"(\appdata\)", "*", "*", "*"),  // 8
    Win("*", R"(:\Users\)", R"(\appdata\local\packages\microsoft)", R"(\cookies\)", "*", "*", "txt"),  // 9
    Win("xp", R"(:\Documents and Settings\)", R"(\cookies\)", "*", "*", "*", "txt"),  // 10
    Win("xp", R"(:\Documents and Settings\)", R"(\local settings\temp\)", "*", "*", "*", "*"),  // 11
    Win("*", R"(:\Users\)", R"(\appdata\local\temp\)", "*", "*", "*", "*"),  // 12
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows\history\)", "*", "*", "*", "*"),  // 13
    Win("*", R"(:\Users\)", R"(\appdata\local\MicrosoftEdge\SharedCacheContainers\)", "*", "*", "*", "*"),  // 14
    Group("This block is for Microsoft Cortana"),
    Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.Windows.Cortana)", "*", "*", "*", "*"),  // 15
    Group("This block is for temporary internet files and cookies, temp folders"),
    Win("*", R"(:\Users\)", R"(\local settings\temporary internet files\)", "*", "*", "*", "*"),  // 16
    Win("*", R"(:\Users\)", R"(\windows\temporary internet files\)", "*", "*", "*", "*"),  // 17
    Win("*", R"(:\Users\)", R"(\microsoft\windows\cookies\)", R"(\appdata\)", "*", "*", "*"),  // 18
    Win("*", R"(:\Users\)", R"(\appdata\local\packages\microsoft)", R"(\cookies\)", "*", "*", "txt"),  // 19
    Win("xp", R"(:\Documents and Settings\)", R"(\cookies\)", "*", "*", "*", "txt"),  // 20
    Win("xp", R"(:\Documents and Settings\)", R"(\local settings\temp\)", "*", "*", "*", "*"),  // 21
    Win("*", R"(:\Users\)", R"(\appdata\local\temp\)", "*", "*", "*", "*"),  // 22
    Win("*", R"(:\Users\)", R"(\appdata\local\microsoft\windows\history\)", "*", "*", "*", "*"),  // 23
    Group(R"(This block is to exclude the Windows registry file which is 8 GBytes and changes every second of every day and is part of "programs" that can be reinstalled)"),
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\ntuser.dat)", "dat"),  // 24
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\ntuser.dat.log)", "log"),  // 25
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\ntuser.dat.log1)", "log1"),  // 26
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\ntuser.dat.log2)", "log2"),  // 27
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\microsoft\windows\usrclass.dat)", "dat"),  // 28
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\microsoft\windows\usrclass.dat.log1)", "log1"),  // 29
    Win("*", R"(:\Users\)", "*", "*", "*", R"(\microsoft\windows\usrclass.dat.log2)", "log2"),  // 30
    Win("*", R"(:\Users\)", R"(\ntuser.dat)", "*", "*", ".tm.blf", "blf"),  // 31
    Win("*", R"(:\Users\)", R"(\usrclass.dat)", "*", "*", ".tm.blf", "blf"),  // 32
    Win("*", "*", "*", "*", "*", R"(\ntuser.ini)", "ini"),  // 33
    Group("This block is for temporary Mozilla and Firefox files"),
    Win("*", R"(:\Users\)", R"(\appdata\local\mozilla\)", R"(\cache\)", "*", "*", "*"),  // 34
    Win("*", R"(:\Users\)", R"(\local settings\application data\mozilla\)", R"(\cache\)", "*", "*", "*"),  // 35
    Group(R"(This block is for a web browser named "Flock" leaving temporary files around)"),
    Win("*", R"(:\Users\)", R"(\flock\browser\profiles\)", R"(\cache\)", "*", "*", "*"),  // 36
    Win("*", R"(:\Users\)", R"(\flock\browser\profiles\)", "*", "*", R"(\urlclassifier3.sqlite)", "sqlite"),  // 37
    Win("xp", "*", R"(\flock\browser\profiles\)", R"(\cache\)", "*", R"(\urlclassifier3.sqlite)", "sqlite"),  // 38
    Group("This block is for temporary Google files"),
    Win("*", R"(:\Users\)", R"(\appdata\local\google\)", R"(\appdata\local\google\chrome\user data)", "bookmarks|shortcuts|preferences", "*", "*"),  // 39
    Win("*", R"(:\Users\)", R"(\local settings\application data\google\)", "*", "*", "*", "*"),  // 40
    Group("This block is for Apple programs running on Windows like iTunes, Safari, etc"),
    Win("*", "*", R"(\itunes\)", R"(\itunes\itunes music\podcasts\)", "*", "*", "*"),  // 41
    Win("*", "*", R"(\itunes\)", R"(\itunes\itunes media\podcasts\)", "*", "*", "*"),  // 42
};

const Row kMergeBlocks[] = {
    Group("This block is all about various logging and diagnosis, added 11/17/2019"),
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Storage Health\)", "*", "*", "*", "*")),  // 1
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Diagnosis\)", "*", "*", "*", "*")),  // 2
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\DeviceMetadataCache\)", "*", "*", "*", "*")),  // 3
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\Power Efficiency Diagnostics\)", "*", "*", "*", "*")),  // 4
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\Caches\)", "*", "*", "*", "*")),  // 5
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Intel\)", "*", "*", "*", "*")),  // 6
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Network\Downloader\)", "*", "*", "*", "*")),  // 7
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Seagate\)", "*", "*", "*", "*")),  // 8
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\VIPRE Business Agent\)", "*", "*", "*", "*")),  // 9
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\PCDr\)", "*", "*", "*", "*")),  // 10
    InBlock("001", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\SupportAssist\)", "*", "*", "*", "*")),  // 11
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Microsoft\Windows\FileHistory\)", "*", "*", "*", "*")),  // 12
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\ConnectedDevicesPlatform\)", "*", "*", "*", "*")),  // 13
    Group("This block is for Windows Packages, added 11/17/2019"),
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.Windows.Cortana)", "*", "*", "*", "*")),  // 14
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.Windows.ContentDeliveryManager)", "*", "*", "*", "*")),  // 15
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.WindowsStore)", "*", "*", "*", "*")),  // 16
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.OneConnect)", "*", "*", "*", "*")),  // 17
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\microsoft.windowscommunicationsapps)", "*", "*", "*", "*")),  // 18
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Microsoft.Windows.CloudExperienceHost)", "*", "*", "*", "*")),  // 19
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\)", ".Netflix_", "*", "*", "*")),  // 20
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Packages\Spotify)", "*", "*", "*", "*")),  // 21
    Group("This block is for various application caches, added 4/16/2020"),
    InBlock("001", Win("*", R"(:\Users\)", R"(\Slack\Service Worker\CacheStorage\)", "*", "*", "*", "*")),  // 22
    Group("This block is for source code control and build temporary files, added 11/17/2019"),
    InBlock("001", Win("*", "*", R"(\.svn\)", "*", "*", "*", "*")),  // 23
    InBlock("001", Win("*", "*", R"(\.gradle\)", "*", "*", "*", "*")),  // 24
    Group("This block is for Chrome browser, added 12/17/2019"),
    InBlock("001", Win("*", R"(:\Users\)", R"(\AppData\Local\Google\)", R"(\AppData\Local\Google\Chrome\User Data)", "Bookmarks|Shortcuts|Preferences", "*", "*")),  // 25
    Group("This block is for Mac logging and diagnosis, added 11/17/2019"),
    InBlock("001", Mac("*", "users/", "/library/logs/diagnosticreports/", "*", "*", "*", "*")),
    InBlock("001", Mac("*", "private/var/db/diagnostics/", "*", "*", "*", "*", "*")),
    InBlock("001", Mac("*", "private/var/db/uuidtext/", "*", "*", "*", "*", "*")),
    InBlock("001", Mac("*", "users/", "/library/application support/slack/service worker/cachestorage/", "*", "*", "*", "*")),
    InBlock("001", Mac("*", "*", "/.svn/", "*", "*", "*", "*")),
    InBlock("001", Mac("*", "*", "/.gradle/", "*", "*", "*", "*")),
    BlockEnd("end of merge block 001"),
    Group("This block is for Microsoft Store apps that can be downloaded and recreated so shouldn't be backed up, added 10/13/2020"),
    InBlock("002", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\AppRepository\Packages\)", "ActivationStore.dat", "*", "*", "*")),  // 26
    InBlock("002", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\AppRepository\Packages\)", "*", "*", "*", "log")),  // 27
    Group("This block is for Docker"),
    InBlock("002", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\DockerDesktop\)", "*", "*", "*", "*")),  // 28
    Group("This block is for Docker on the Mac"),
    InBlock("002", Mac("*", "users/", "/library/containers/com.docker.docker/", "*", "*", "*", "*")),
    BlockEnd("end of merge block 002"),
    Group("This block is for Microsoft Store apps that expand the range for all files on AppRepository/Packages, added 4/23/2021"),
    InBlock("003", Win("*", R"(:\ProgramData\)", R"(:\ProgramData\Microsoft\Windows\AppRepository\Packages\)", "*", "*", "*", "*")),  // 29
    BlockEnd("end of merge block 003"),
    Group("This block is moving the exclusion for desktop.ini from mandatory to editable 11/29/2021"),
    InBlock("004", Win("*", "*", "*", "*", "*", R"(\desktop.ini)", "ini")),  // 30
    BlockEnd("end of merge block 004"),
};
// clang-format on

}  // namespace

Rows MandatoryWinRows() {
    return {kMandatoryWin, sizeof kMandatoryWin / sizeof kMandatoryWin[0]};
}
Rows EditableWinRows() {
    return {kEditableWin, sizeof kEditableWin / sizeof kEditableWin[0]};
}
Rows MergeBlockRows() {
    return {kMergeBlocks, sizeof kMergeBlocks / sizeof kMergeBlocks[0]};
}

}  // namespace QzRuleTexts
