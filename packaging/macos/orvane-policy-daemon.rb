# Homebrew formula; docs/macos.md says how to use it.
class OrvanePolicyDaemon < Formula
  desc "Keeps a device's guard policy in step with its control plane"
  homepage "https://orvane.invalid/policy-daemon"
  license :cannot_represent
  # There are no release archives: a checkout or the repository's address comes from the environment.
  head ENV.fetch("HOMEBREW_ORVANE_SOURCE", "https://orvane.invalid/policy-daemon.git"),
       using: :git, branch: "main"

  depends_on "boost" => :build
  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "pkgconf" => :build
  depends_on "utf8cpp" => :build
  depends_on macos: :ventura
  depends_on "uriparser"
  uses_from_macos "curl"

  def install
    system "cmake", "--preset", "release", "-DORVANE_MACOS_PLACE=#{opt_libexec}"
    system "cmake", "--build", "--preset", "release"
    libexec.install "build/release/OrvanePolicyDaemon"
    bin.install "build/release/orvane-policy-status"
    libexec.install "packaging/macos/rotate-activity-log"
    man1.install "build/release/packaging/orvane-policy-status.1"
    man8.install "build/release/packaging/OrvanePolicyDaemon.8"
    # Homebrew starts one service for each formula; this one is for launchd itself.
    inreplace "packaging/macos/dev.orvane.policy-daemon.rotation.plist", "/Library/Application Support/Orvane", opt_libexec
    prefix.install "packaging/macos/dev.orvane.policy-daemon.rotation.plist"
  end

  service do
    run opt_libexec/"OrvanePolicyDaemon"
    run_at_load true
    keep_alive true
    process_type :background
  end

  def caveats
    <<~EOS
      The activity log grows until it is rotated. To have that done every hour:
        cp #{opt_prefix}/dev.orvane.policy-daemon.rotation.plist ~/Library/LaunchAgents/
        launchctl bootstrap gui/$(id -u) ~/Library/LaunchAgents/dev.orvane.policy-daemon.rotation.plist
    EOS
  end

  test do
    # It has no command line and never ends by itself, and running it would take this account's files.
    assert_predicate libexec/"OrvanePolicyDaemon", :executable?
  end
end
