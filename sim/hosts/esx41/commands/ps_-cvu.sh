# procps 3.2.7 rejects this option set; nothing reaches standard output.
printf '%s\n' 'Warning: bad syntax, perhaps a bogus '"'"'-'"'"'? See http://procps.sf.net/faq.html' 'ERROR: Conflicting format options.' '********* simple selection *********  ********* selection by list *********' >&2
exit 1
