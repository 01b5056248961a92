"""Real front ends, each a process with its own configuration between a port for the devices and the control plane."""

import asyncio
import dataclasses
import pathlib
import socket
import time

from plane import Plane

# Longer than any hold.
PATIENCE = 400
PORTS = iter(range(20000, 30000))


@dataclasses.dataclass
class Setting:
    """What the front end is to do. `idle`: after how many seconds it closes a connection without a request."""

    idle: float = 60
    http2: bool = True
    demands_certificate: bool = False


def nginx(place, port, setting, pki):
    (place / "nginx.conf").write_text(
        f"""
daemon off; user root; pid {place}/pid; error_log {place}/log; worker_processes 1;
events {{ worker_connections 4096; }}
http {{
    access_log off; client_body_temp_path {place}/body; proxy_temp_path {place}/proxy; fastcgi_temp_path {place}/f;
    uwsgi_temp_path {place}/u; scgi_temp_path {place}/s; server {{
        listen [::]:{port} ssl {"http2" if setting.http2 else ""} ipv6only=off;
        ssl_certificate {pki.chain}; ssl_certificate_key {pki.key}; keepalive_timeout {round(setting.idle * 1000)}ms;
        {f"ssl_verify_client on; ssl_client_certificate {pki.authority};" if setting.demands_certificate else ""}
        location / {{
            proxy_pass http://127.0.0.1:{Plane.PORT}; proxy_http_version 1.1; proxy_set_header Connection "";
            proxy_read_timeout {PATIENCE}s; proxy_max_temp_file_size 0;
        }}
    }}
}}
"""
    )
    return ["nginx", "-e", f"{place}/log", "-c", f"{place}/nginx.conf"]


def haproxy(place, port, setting, pki):
    demand = f"verify required ca-file {pki.authority}" if setting.demands_certificate else ""
    (place / "haproxy.cfg").write_text(
        f"""
defaults
    mode http
    timeout connect 5s
    timeout client {PATIENCE}s
    timeout server {PATIENCE}s
    timeout http-keep-alive {round(setting.idle * 1000)}ms
frontend devices
    bind :::{port} v4v6 ssl crt {pki.both} {demand} alpn {"h2,http/1.1" if setting.http2 else "http/1.1"}
    default_backend plane
backend plane
    server plane 127.0.0.1:{Plane.PORT}
"""
    )
    return ["haproxy", "-W", "-db", "-f", place / "haproxy.cfg"]


def nghttpx(place, port, setting, pki):
    idle = round(setting.idle * 1000)
    return [
        "nghttpx",
        f"--frontend=*,{port}",
        f"--backend=127.0.0.1,{Plane.PORT}",
        f"--frontend-http2-read-timeout={idle}ms",
        f"--frontend-keep-alive-timeout={idle}ms",
        f"--backend-read-timeout={PATIENCE}s",
        f"--errorlog-file={place}/log",
        f"--pid-file={place}/pid",
        "--accesslog-file=/dev/null",
        f"--conf={place}/none",
        "--no-ocsp",
        *([] if setting.http2 else ["--npn-list=http/1.1"]),
        *(["--verify-client", f"--verify-client-cacert={pki.authority}"] if setting.demands_certificate else []),
        pki.key,
        pki.chain,
    ]


def caddy(place, port, setting, pki):
    demand = "client_auth {\n mode require_and_verify\n trusted_ca_cert_file " + str(pki.authority) + "\n}"
    (place / "Caddyfile").write_text(
        f"""{{
    admin off
    auto_https off
    storage file_system {place}/storage
    servers {{
        protocols {"h1 h2" if setting.http2 else "h1"}
        timeouts {{
            idle {round(setting.idle * 1000)}ms
        }}
    }}
}}
https://:{port} {{
    tls {pki.chain} {pki.key} {{
        {demand if setting.demands_certificate else ""}
    }}
    reverse_proxy 127.0.0.1:{Plane.PORT}
}}
"""
    )
    return ["caddy", "run", "--adapter", "caddyfile", "--config", place / "Caddyfile"]


def apache(place, port, setting, pki):
    modules = "mpm_event ssl http2 proxy proxy_http authz_core socache_shmcb".split()
    loads = "\n".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so" for name in modules)
    demand = f"SSLVerifyClient require\nSSLCACertificateFile {pki.authority}" if setting.demands_certificate else ""
    (place / "apache.conf").write_text(
        f"""
{loads}
ServerRoot {place}
ServerName front.test
DefaultRuntimeDir {place}
PidFile {place}/pid
ErrorLog {place}/log
User nobody
Group nogroup
Listen {port}
Timeout {PATIENCE}
KeepAlive On
MaxKeepAliveRequests 0
KeepAliveTimeout {round(setting.idle * 1000)}ms
ThreadsPerChild 64
MaxRequestWorkers 512
ServerLimit 8
Protocols {"h2 http/1.1" if setting.http2 else "http/1.1"}
SSLEngine on
SSLCertificateFile {pki.chain}
SSLCertificateKeyFile {pki.key}
SSLSessionCache none
{demand}
ProxyPass / http://127.0.0.1:{Plane.PORT}/
ProxyTimeout {PATIENCE}
"""
    )
    return ["apache2", "-D", "FOREGROUND", "-f", place / "apache.conf"]


KINDS = {"nginx": nginx, "haproxy": haproxy, "nghttpx": nghttpx, "caddy": caddy, "apache": apache}
# The others are tried nightly.
OF_EVERY_CHANGE = ["nginx", "haproxy", "nghttpx"]


class Front:
    """A running front end."""

    def __init__(self, name, setting, pki):
        self.protocol = f"HTTP/{2 if setting.http2 else 1.1}"
        self.name = name
        self.port = next(PORTS)
        self._place = pathlib.Path("/tmp/fronts") / f"{name}-{self.port}"
        self._place.mkdir(parents=True)
        self._place.chmod(0o777)
        self._command = [str(part) for part in KINDS[name](self._place, self.port, setting, pki)]
        self.process = None

    async def start(self):
        with (self._place / "output").open("wb") as output:
            self.process = await asyncio.create_subprocess_exec(
                *self._command, stdin=asyncio.subprocess.DEVNULL, stdout=output, stderr=output
            )
        await listens(self.port, self.process, self._place)
        return self

    def __str__(self):
        return f"{self.name}, {self.protocol}"

    def workers(self):
        """The process numbers of its children."""
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        return [int(number) for number in children.read_text().split()]


async def start_proxy(rule):
    """A tinyproxy with this line in its configuration; its port."""
    port = next(PORTS)
    place = pathlib.Path("/tmp/fronts") / f"tinyproxy-{port}"
    place.mkdir()
    (place / "conf").write_text(f"Port {port}\n{rule}\nLogFile \"{place}/log\"\nLogLevel Error\n")
    process = await asyncio.create_subprocess_exec(
        *("tinyproxy", "-d", "-c", str(place / "conf")), stdout=asyncio.subprocess.DEVNULL, stderr=None
    )
    await listens(port, process, place)
    return port


async def listens(port, process, place, limit=20):
    """Returns when something takes connections at `port`."""
    end = time.monotonic() + limit
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return
        except OSError:
            if process.returncode is not None or time.monotonic() > end:
                output = "".join(file.read_text(errors="replace") for file in place.iterdir() if file.is_file())
                raise RuntimeError(f"nothing listens; {place}:\n{output}") from None
            await asyncio.sleep(0.05)
