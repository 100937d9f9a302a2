#!/usr/bin/env bash
# credentials.sh FOLDER: creates two authorities, the certificates they sign, all with one key, and password files.
set -euo pipefail
cd "$1"

# sign NAME AUTHORITY HOST DAYS [USE]: makes a certificate that is valid for so many days.
sign() {
  openssl req -new -subj "/CN=$1" -addext "subjectAltName=$3" -addext "extendedKeyUsage=${5:-serverAuth,clientAuth}" \
    -key key -out request
  openssl x509 -req -in request -CA "$2" -CAkey key -copy_extensions copy -days "$4" -out "$1"
}

for name in key other-key; do openssl ecparam -name prime256v1 -genkey -noout -out $name; done
for name in ours foreign; do openssl req -x509 -days 2 -subj "/CN=$name" -key key -out $name; done
sign peer ours IP:127.0.0.1 2
sign foreign-peer foreign IP:127.0.0.1 2
sign expired ours IP:127.0.0.1 -1
sign elsewhere ours DNS:elsewhere.test 2
sign for-clients ours IP:127.0.0.1 2 clientAuth

openssl req -new -subj /CN=old -addext basicConstraints=CA:TRUE -key key -out request
openssl x509 -req -in request -signkey key -copy_extensions copy -days -1 -out old
sign of-old old IP:127.0.0.1 2
cat ours old >ours-and-old

# Only `openssl ca` can make a certificate that becomes valid later.
printf '%s\n' '[ca]' default_ca=one '[one]' database=index new_certs_dir=. rand_serial=yes policy=any \
  default_md=sha256 copy_extensions=copy '[any]' commonName=supplied >ca.conf
touch index
openssl req -new -subj /CN=too-early -addext subjectAltName=IP:127.0.0.1 -key key -out request
openssl ca -batch -notext -config ca.conf -cert ours -keyfile key -startdate 20700101000000Z -enddate 20800101000000Z \
  -in request -out too-early

for word in right wrong; do
  printf '%s\r\nsecond line\n' $word >$word
  touch only-$word
  mosquitto_passwd -b only-$word user $word
done

touch empty
printf '\nright\n' >empty-line
echo 'no key' >garbage
openssl ec -in key -aes128 -passout pass:secret -out locked-key
install -m 000 key unreadable
