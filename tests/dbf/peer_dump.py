# Prints a table as python3-dbf reads it: one line per field definition,
# then one line per record (deletion flag, then every value), fields
# separated by "|". Used by the DBF tests as an independent reader.
import sys
import dbf

t = dbf.Table(sys.argv[1], codepage='cp1252')
t.open(mode=dbf.READ_ONLY)
names = t.field_names
for n in names:
    info = t.field_info(n)
    print('F|%s|%s|%d|%d' % (n.upper(), chr(info[0]), info[1], info[2]))
for r in t:
    out = ['R', '1' if dbf.is_deleted(r) else '0']
    for n in names:
        kind = chr(t.field_info(n)[0])
        v = r[n]
        if kind == 'N' or kind == 'F':
            out.append('' if v is None else '%.*f' % (t.field_info(n)[2], v))
        elif kind == 'D':
            out.append('' if v is None else v.strftime('%Y%m%d'))
        elif kind == 'L':
            out.append('?' if v is None else ('T' if v else 'F'))
        else:
            out.append('' if v is None else str(v).rstrip())
    print('|'.join(out))
t.close()
