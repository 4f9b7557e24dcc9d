# Completion of nebulark-ctl's command line in fish.

# Whether this many words come before the one at the cursor, nebulark-ctl
# included.
function __nebulark_ctl_words_are --argument-names count
    test (count (commandline --tokenize --cut-at-cursor --current-process)) -eq $count
end

function __nebulark_ctl_command_is --argument-names command
    set --local words (commandline --tokenize --cut-at-cursor --current-process)
    test "$words[2]" = $command
end

# Offers a name, unless the command line assigns it already; after the name and
# its equals sign, its values.
function __nebulark_ctl_assignment --argument-names name description
    if string match --quiet --ignore-case -- "$name=*" (commandline --current-token --cut-at-cursor)
        printf '%s\n' $name=$argv[3..]
    else if not string match --quiet --ignore-case -- "$name=*" (commandline --tokenize --current-process)
        printf '%s=\t%s\n' $name $description
    end
end

complete --command nebulark-ctl --no-files

complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 1' \
    --arguments --prefs --description 'Show the rendering preferences'
complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 1' \
    --arguments --set --description 'Change preferences'
complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 1' \
    --arguments --clear-thumb-cache --description 'Delete cached thumbnails of astronomical files'
complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 1' \
    --arguments --version --description 'Print the version'
complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 1' \
    --arguments --help --description 'Print a summary'

complete --command nebulark-ctl --condition '__nebulark_ctl_words_are 2; and __nebulark_ctl_command_is --clear-thumb-cache' \
    --arguments --all --description 'Delete the thumbnails of all other files too'

complete --command nebulark-ctl --condition '__nebulark_ctl_command_is --set' --keep-order --arguments "
    (__nebulark_ctl_assignment autostretch 'Stretch faint pictures' on off)
    (__nebulark_ctl_assignment brightness 'Level of the background' darker standard brighter)
    (__nebulark_ctl_assignment cfa 'How colour filter arrays are read' auto color mono)
    (__nebulark_ctl_assignment labelformat 'Write the format on the thumbnail' on off)
    (__nebulark_ctl_assignment labelcorner 'Where the format is written' topleft topright bottomleft bottomright)"
