# Prints a table as python3-dbf reads it, in the form of peer_dump.pl.
import sys
import dbf

t = dbf.Table(sys.argv[1], codepage='cp1252')
t.open(mode=dbf.READ_ONLY)
info = [(n, chr(t.field_info(n)[0]), t.field_info(n)[2]) for n in t.field_names]
for n, kind, dec in info:
    print('F|%s|%s|%d|%d' % (n.upper(), kind, t.field_info(n)[1], dec))
for r in t:
    print('|'.join(['R', '1' if dbf.is_deleted(r) else '0'] + [
        ('?' if k == 'L' else '') if r[n] is None else '%.*f' % (d, r[n]) if k == 'N' else
        r[n].strftime('%Y%m%d') if k == 'D' else ('T' if r[n] else 'F') if k == 'L' else str(r[n]).rstrip()
        for n, k, d in info]))
