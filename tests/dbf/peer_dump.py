# Prints a table as python3-dbf reads it, in the form of peer_dump.pl.
import sys
import dbf

t = dbf.Table(sys.argv[1], codepage='cp1252')
t.open(mode=dbf.READ_ONLY)
info = [(n, t.field_info(n)) for n in t.field_names]
for n, i in info:
    print('F|%s|%s|%d|%d' % (n.upper(), chr(i[0]), i[1], i[2]))
for r in t:
    out = ['R', '1' if dbf.is_deleted(r) else '0']
    for n, i in info:
        v, kind = r[n], chr(i[0])
        if v is None:
            out.append('?' if kind == 'L' else '')
        elif kind == 'N':
            out.append('%.*f' % (i[2], v))
        elif kind == 'D':
            out.append(v.strftime('%Y%m%d'))
        elif kind == 'L':
            out.append('T' if v else 'F')
        else:
            out.append(str(v).rstrip())
    print('|'.join(out))
