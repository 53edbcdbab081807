"""The exclusion rule files and -merge_exclude_rules: creating the files in
the data directory, merging the numbered default blocks once, the merge log,
and editable files the merge must leave alone."""

import os
import re

from harness import check, check_eq, read, write

MERGED = "qzfilelist -merge_exclude_rules - Some new blocks were merged!"
NOTHING = "qzfilelist -merge_exclude_rules - nothing changed, nothing needed to be merged."
MERGE_LOG_LINE = re.compile(r'^merged_\d{4}-\d\d-\d\d \d\d:\d\d:\d\d qzmergeblock="(\d{3})"$')
END_TAG = "</qzexclusions>"


def paths(m):
    d = m.datadir()
    return (os.path.join(d, "qzexcluderules_editable.xml"), os.path.join(d, "qzexcluderules_mandatory.xml"),
            os.path.join(d, "qzreports", "qzexcluderules_editable_mergelog.txt"))


def rule_lines(text):
    return [l for l in text.split("\n") if l.startswith("<excludefname_rule ")]


def merge_log_blocks(path):
    lines = read(path).split("\n")
    check_eq(lines[-1], "", "end of the merge log")
    blocks = []
    for line in lines[:-1]:
        mt = MERGE_LOG_LINE.match(line)
        check(mt is not None, f"malformed merge log line {line!r}")
        blocks.append(mt.group(1))
    return blocks


def merge(m, expect_merged):
    r = m.run("-merge_exclude_rules")
    check_eq(r.rc, 0, "exit code")
    check_eq(r.stdout, MERGED + "\n" if expect_merged else "Nothing changed.\n", "stdout")
    check_eq(r.stderr, "", "stderr")
    check((MERGED if expect_merged else NOTHING) in m.log_messages(), "the verdict is not in the log")
    return r


def unmerged(editable_text):
    """The default editable text: the merged file without its block rules."""
    return "".join(l for l in editable_text.splitlines(keepends=True) if 'qzmergeblock="' not in l)


def test_merge_on_a_fresh_data_directory_writes_both_files_and_every_block(m):
    m.make_datadir()
    merge(m, True)
    editable, mandatory, merge_log = paths(m)
    text = read(editable)
    rules = rule_lines(text)
    check_eq(len(rules), 49 + 30, "rules in the editable file")
    # The 30 Windows rules of blocks 001 to 004, in order, right before the end tag.
    merged = rules[-30:]
    check(all('plat="win"' in l for l in merged), "a merged rule is not a Windows rule")
    check_eq([re.search(r'qzmergeblock="(\d+)"', l).group(1) for l in merged],
             ["001"] * 25 + ["002"] * 3 + ["003", "004"], "merged blocks")
    check(text.endswith(merged[-1] + "\n" + END_TAG + "\n"), "merged rules are not right before the end tag")
    check(text.startswith('<?xml version="1.0" encoding="UTF-8" ?> \n\n<qzexclusions>\n'), "editable file start")
    check('doesNotContain="bookmarks|shortcuts|preferences"' in text, "editable default rule 39 is missing")

    mtext = read(mandatory)
    check_eq(len(rule_lines(mtext)), 278, "rules in the mandatory file")
    check_eq(len([l for l in rule_lines(mtext) if 'plat="win"' in l]), 114, "Windows rules in the mandatory file")
    check('qzmergeblock' not in mtext, "the mandatory file has merge-block rules")

    blocks = merge_log_blocks(merge_log)
    check_eq(len(blocks), 37, "merge log lines")
    check_eq(sorted(set(blocks)), ["001", "002", "003", "004"], "blocks in the merge log")
    leftovers = [n for n in os.listdir(m.datadir()) if n.endswith(".tmp")]
    check_eq(leftovers, [], "temporary files left behind")
    log = m.log_messages()
    check(any(msg.startswith("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - created editable rules so must "
                             "reapply the entire list of merged editable rules.") for msg in log),
          "no log line for the recreated editable file")
    check_eq(sum("skipping over mergable rule because plat=mac is not our platform=win (this is fine and "
                 "expected for some rules)" in msg for msg in log), 7, "other-platform rules skipped")
    check_eq([msg for msg in log if msg.startswith("ERROR") and "MakeSure" in msg], [], "merge ERROR lines")

    # A second run has nothing to do and changes nothing.
    before = (read(editable), read(mandatory), read(merge_log))
    merge(m, False)
    check_eq((read(editable), read(mandatory), read(merge_log)), before, "files after the second run")


def test_merge_log_naming_001_to_003_adds_only_004(m):
    m.make_datadir()
    merge(m, True)
    editable, _, merge_log = paths(m)
    base = unmerged(read(editable))
    write(editable, base)
    odd_lines = ('merged_2021-01-01 10:00:00 qzmergeblock="001"\r\n'
                 'merged_2021-01-01 10:00:00 qzmergeblock="002"\n'
                 '\n'
                 'a line without a block number\n'
                 'merged_2021-01-01 10:00:00 qzmergeblock="03"\n'
                 'merged_2021-06-01 10:00:00 qzmergeblock="003"\n')
    write(merge_log, odd_lines)
    merge(m, True)
    text = read(editable)
    added = [l for l in rule_lines(text) if 'qzmergeblock="' in l]
    check_eq(len(added), 1, "rules added")
    check('qzmergeblock="004"' in added[0] and 'endsWith="\\desktop.ini"' in added[0], f"added {added[0]!r}")
    check_eq(unmerged(text), base, "the rest of the editable file")
    appended = read(merge_log)[len(odd_lines):]
    check(MERGE_LOG_LINE.match(appended.rstrip("\n")) is not None and appended.count("\n") == 1,
          f"appended merge log line {appended!r}")
    check('qzmergeblock="004"' in appended, "block 004 is not logged")


def test_deleting_the_editable_file_recreates_it_and_sets_the_merge_log_aside(m):
    m.make_datadir()
    merge(m, True)
    editable, mandatory, merge_log = paths(m)
    first = read(editable)
    write(mandatory, "the user's edits, which are kept\n")
    os.remove(editable)
    merge(m, True)
    check_eq(read(editable), first, "recreated editable file")
    check_eq(len(merge_log_blocks(merge_log + ".aside")), 37, "merge log set aside")
    check_eq(len(merge_log_blocks(merge_log)), 37, "new merge log")
    check_eq(read(mandatory), "the user's edits, which are kept\n", "existing mandatory file")
    check(m.logged("mergeLog_existed, successfully moved aside fName="), "no log line for the merge log set aside")


def test_an_editable_file_without_a_real_end_tag_takes_no_rules(m):
    # Where the rules go in a file that can take them is checked on arbitrary files by the rules fuzz target.
    m.make_datadir()
    merge(m, True)
    editable, _, merge_log = paths(m)
    base = unmerged(read(editable))
    commented = base.replace("<qzexclusions>\n", "<qzexclusions>\n<!-- old end: </qzexclusions> -->\n", 1)
    # Without an end tag, or with its only end tag inside a comment, the file cannot take rules.
    for broken in ('<qzexclusions>\n<excludefname_rule plat="win" osVers="*" />\n', commented[:commented.rindex(END_TAG)]):
        write(editable, broken)
        if os.path.exists(merge_log):
            os.remove(merge_log)
        merge(m, False)
        check_eq(read(editable), broken, "editable file without a real end tag")
        check(not os.path.exists(merge_log), "a merge log was written")
    check(m.logged("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, some content exists, "
                   "but no end tag </qzexclusions> inside editable rules fileName="), "the refusal is not logged")
