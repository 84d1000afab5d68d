# fish completion for tarvoctl
complete -c tarvoctl -f
complete -c tarvoctl -l json -d 'results and errors as one JSON document'
complete -c tarvoctl -l device -x -d 'serial number or USB location'
complete -c tarvoctl -l config -r -F -d 'preferences file'
complete -c tarvoctl -l quiet -d 'neither messages nor progress'
complete -c tarvoctl -l timeout -x -d 'how long the device may be silent'
complete -c tarvoctl -l version -d 'print the version'
complete -c tarvoctl -l help -d 'print a summary'

complete -c tarvoctl -n __fish_use_subcommand -a devices -d 'Cameras and cards that are connected'
complete -c tarvoctl -n __fish_use_subcommand -a info -d 'What the device says of itself and holds'
complete -c tarvoctl -n __fish_use_subcommand -a storage -d 'The stores of the device'
complete -c tarvoctl -n __fish_use_subcommand -a ls -d 'Objects on the device'
complete -c tarvoctl -n __fish_use_subcommand -a get -d 'Fetch objects as files'
complete -c tarvoctl -n __fish_use_subcommand -a put -d 'Send files to the device'
complete -c tarvoctl -n __fish_use_subcommand -a rm -d 'Delete objects on the device'
complete -c tarvoctl -n __fish_use_subcommand -a rename -d 'Give an object another name'
complete -c tarvoctl -n __fish_use_subcommand -a property -d 'The settings of the device'
complete -c tarvoctl -n __fish_use_subcommand -a clock -d 'The device\'s clock'
complete -c tarvoctl -n __fish_use_subcommand -a orders -d 'What was marked to be sent, printed or transferred'
complete -c tarvoctl -n __fish_use_subcommand -a addressbook -d 'The e-mail addresses that the device keeps'
complete -c tarvoctl -n __fish_use_subcommand -a albums -d 'Albums and their names'
complete -c tarvoctl -n __fish_use_subcommand -a favourites -d 'Pictures that are marked as favourites'
complete -c tarvoctl -n __fish_use_subcommand -a collection -d 'The id under which the device files what it gets'
complete -c tarvoctl -n __fish_use_subcommand -a shoebox -d 'The device\'s shoebox of pictures'
complete -c tarvoctl -n __fish_use_subcommand -a wireless-config -d 'Settings for a wireless network'
complete -c tarvoctl -n __fish_use_subcommand -a display -d 'Show something on the back of the camera'
complete -c tarvoctl -n __fish_use_subcommand -a events -d 'What the device reports by itself'
complete -c tarvoctl -n __fish_use_subcommand -a query -d 'Rows of the device\'s own database'
complete -c tarvoctl -n __fish_use_subcommand -a reset -d 'Put the device into the state after switching on'
complete -c tarvoctl -n __fish_use_subcommand -a models -d 'Which models are supported'
complete -c tarvoctl -n __fish_use_subcommand -a decode -d 'Show the bytes of a data set as JSON'
complete -c tarvoctl -n __fish_use_subcommand -a encode -d 'Write the bytes of a data set that is given as JSON'

complete -c tarvoctl -n '__fish_seen_subcommand_from storage; and not __fish_seen_subcommand_from list format' -a list -d 'Every store with its room'
complete -c tarvoctl -n '__fish_seen_subcommand_from storage; and not __fish_seen_subcommand_from list format' -a format -d 'Delete everything in a store'
complete -c tarvoctl -n '__fish_seen_subcommand_from storage; and __fish_seen_subcommand_from format' -l yes -d 'do not ask'

complete -c tarvoctl -n '__fish_seen_subcommand_from property; and not __fish_seen_subcommand_from list get set' -a list -d 'Every property with its value'
complete -c tarvoctl -n '__fish_seen_subcommand_from property; and not __fish_seen_subcommand_from list get set' -a get -d 'One property, and what it may be set to'
complete -c tarvoctl -n '__fish_seen_subcommand_from property; and not __fish_seen_subcommand_from list get set' -a set -d 'Set a property'

complete -c tarvoctl -n '__fish_seen_subcommand_from clock; and not __fish_seen_subcommand_from set' -a set -d 'Set it to the time of this computer'

complete -c tarvoctl -n '__fish_seen_subcommand_from models; and not __fish_seen_subcommand_from list check' -a list -d 'Every supported USB id'
complete -c tarvoctl -n '__fish_seen_subcommand_from models; and not __fish_seen_subcommand_from list check' -a check -d 'Whether a USB id is supported'

complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and not __fish_seen_subcommand_from list show fulfil delete' -a list -d 'Every order with whom or what it is for'
complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and not __fish_seen_subcommand_from list show fulfil delete' -a show -d 'All that is known of orders, and their pictures'
complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and __fish_seen_subcommand_from show' -l download -r -F -d 'folder for the pictures'
complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and not __fish_seen_subcommand_from list show fulfil delete' -a fulfil -d 'Tell the device that pictures have been dealt with'
complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and not __fish_seen_subcommand_from list show fulfil delete' -a delete -d 'Delete orders; the pictures stay'
complete -c tarvoctl -n '__fish_seen_subcommand_from orders; and __fish_seen_subcommand_from delete' -l yes -d 'do not ask'

complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and not __fish_seen_subcommand_from show validate export import edit' -a show -d 'Contacts, groups, and what the device takes'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and not __fish_seen_subcommand_from show validate export import edit' -a validate -d 'Whether the device\'s book, or a file, is valid'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from validate' -l format -x -a 'json vcard' -d 'json or vcard'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from validate' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and not __fish_seen_subcommand_from show validate export import edit' -a export -d 'The book as a file'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from export' -l format -x -a 'json vcard' -d 'json or vcard'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from export' -l overwrite -d 'replace a file that is there'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from export' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and not __fish_seen_subcommand_from show validate export import edit' -a import -d 'Make the device\'s book that of a file'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -l format -x -a 'json vcard' -d 'json or vcard'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -l merge -d 'remove nothing that only the device has'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -l dry-run -d 'say what would change'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -l sync -d 'only synchronise, which sends no contacts'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -l yes -d 'do not ask'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from import' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and not __fish_seen_subcommand_from show validate export import edit' -a edit -d 'Change the book in your editor'
complete -c tarvoctl -n '__fish_seen_subcommand_from addressbook; and __fish_seen_subcommand_from edit' -l yes -d 'do not ask'

complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and not __fish_seen_subcommand_from list show get put' -a list -d 'Every album on the device'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and not __fish_seen_subcommand_from list show get put' -a show -d 'What the file of album names holds'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and not __fish_seen_subcommand_from list show get put' -a get -d 'Fetch that file'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and __fish_seen_subcommand_from get' -l overwrite -d 'replace a file that is there'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and __fish_seen_subcommand_from get' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and not __fish_seen_subcommand_from list show get put' -a put -d 'Send a file in its place'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and __fish_seen_subcommand_from put' -l yes -d 'do not ask'
complete -c tarvoctl -n '__fish_seen_subcommand_from albums; and __fish_seen_subcommand_from put' -F

complete -c tarvoctl -n '__fish_seen_subcommand_from favourites; and not __fish_seen_subcommand_from list delete' -a list -d 'Every favourite'
complete -c tarvoctl -n '__fish_seen_subcommand_from favourites; and not __fish_seen_subcommand_from list delete' -a delete -d 'Delete all of them'
complete -c tarvoctl -n '__fish_seen_subcommand_from favourites; and __fish_seen_subcommand_from delete' -l yes -d 'do not ask'

complete -c tarvoctl -n '__fish_seen_subcommand_from collection; and not __fish_seen_subcommand_from get set' -a get -d 'Show it'
complete -c tarvoctl -n '__fish_seen_subcommand_from collection; and not __fish_seen_subcommand_from get set' -a set -d 'Set it, or take it away'
complete -c tarvoctl -n '__fish_seen_subcommand_from collection; and __fish_seen_subcommand_from set' -l clear -d 'take it away'

complete -c tarvoctl -n '__fish_seen_subcommand_from shoebox; and not __fish_seen_subcommand_from send add' -a send -d 'Send a shoebox file'
complete -c tarvoctl -n '__fish_seen_subcommand_from shoebox; and __fish_seen_subcommand_from send' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from shoebox; and not __fish_seen_subcommand_from send add' -a add -d 'Add a picture to it'
complete -c tarvoctl -n '__fish_seen_subcommand_from shoebox; and __fish_seen_subcommand_from add' -F

complete -c tarvoctl -n '__fish_seen_subcommand_from wireless-config; and not __fish_seen_subcommand_from show' -a show -d 'Show them, passwords included'

complete -c tarvoctl -n '__fish_seen_subcommand_from devices' -l watch -d 'go on with what comes and goes'
complete -c tarvoctl -n '__fish_seen_subcommand_from devices' -l count -x -d 'end after so many'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l store -x -d 'store id'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l format -x -d 'format code or extension'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l association -x -d 'handle of a folder'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l long -d 'with format, size and date'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l recursive -d 'with all that lies below'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l handles -d 'handles alone'
complete -c tarvoctl -n '__fish_seen_subcommand_from ls' -l limit -x -d 'end after so many objects'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l all -d 'everything but folders'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l new -d 'only what is not there yet'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l output -r -F -d 'folder or file'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l thumbnail -d 'the small picture'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l overwrite -d 'replace files that are there'
complete -c tarvoctl -n '__fish_seen_subcommand_from get' -l keep-both -d 'number new files whose name is taken'
complete -c tarvoctl -n '__fish_seen_subcommand_from put' -l store -x -d 'store id'
complete -c tarvoctl -n '__fish_seen_subcommand_from put' -l parent -x -d 'handle of a folder'
complete -c tarvoctl -n '__fish_seen_subcommand_from rm' -l yes -d 'do not ask'
complete -c tarvoctl -n '__fish_seen_subcommand_from events' -l count -x -d 'end after so many'
complete -c tarvoctl -n '__fish_seen_subcommand_from put decode encode display' -F
complete -c tarvoctl -n '__fish_seen_subcommand_from decode encode' -a 'deviceinfo objectinfo extobjectinfo storageinfo addressbookinfo contact group emailorder printorder transferorder propdesc string guid uint16array uint32array'
